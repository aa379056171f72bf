#include <Tests/Persistence/StorageFixture.h>
#include <VxCommon/Persistence/NodeStorage.h>
#include <VxCommon/VcLib/Status.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace VxCommon
{
namespace
{

class NodeStorageTest : public StorageFixture
{
protected:
    void Write(const std::string& name, const std::string& text = "new")
    {
        const Bytes bytes = ToBytes(text);
        storage_.WriteFile(name, bytes.data(), bytes.size());
    }

    /// What reading, writing, copying from and to, diagnosing, deleting, looking for and sizing this name throws.
    Journal Outcomes(const std::string& name)
    {
        const std::function<void()> operations[] = {[&] { storage_.ReadFile(name); },
                                                    [&] { Write(name); },
                                                    [&] { storage_.CopyFile(name, "target"); },
                                                    [&] { storage_.CopyFile("source", name); },
                                                    [&] { storage_.CopyForDiagnosis(name, 1); },
                                                    [&] { storage_.DeleteFile(name); },
                                                    [&] { storage_.FileExists(name); },
                                                    [&] { storage_.FileSize(name); }};
        files_.Put("source", "source");
        files_.Mark();
        Journal outcomes;
        for (const auto& operation : operations) {
            outcomes.push_back(Thrown(operation));
        }
        EXPECT_TRUE(files_.Unchanged());
        return outcomes;
    }

    NodeStorage storage_{system_};
};

TEST_F(NodeStorageTest, NamesThatNoOperationTakes)
{
    const Journal forbidden{"-997 NodeStorage::ReadFile",   "-997 NodeStorage::WriteFile",
                            "-997 NodeStorage::FileExists", "-997 NodeStorage::FileExists",
                            "-997 NodeStorage::FileExists", "-997 NodeStorage::DeleteFile",
                            "-997 NodeStorage::FileExists", "-997 NodeStorage::FileExists"};
    for (const char c : std::string(":*?\"<>|")) {
        const std::string name = std::string("a") + c + "b|";
        EXPECT_EQ(Outcomes(name), forbidden) << name;
        EXPECT_EQ(Thrown([&] { storage_.ListFiles(std::string(1, c)); }), "-997 NodeStorage::ListFiles");
        const VxTestSupport::ScopedLogCapture log;
        EXPECT_FALSE(NodeStorage::IsFileNameValid(name));
        EXPECT_EQ(LogOf(log), Journal({"PersistManager: W The file name " + name +
                                       " contains an invalid character: " + std::string(1, c)}));
    }
    // 506 characters make a path of 512; the path buffer holds one less. Writing looks at the length before.
    EXPECT_EQ(Outcomes(std::string(506, 'n')),
              Journal({"-995 NodeStorage::FileExists", "-997 NodeStorage::WriteFile", "-995 NodeStorage::FileExists",
                       "-995 NodeStorage::FileExists", "-995 NodeStorage::FileExists", "-995 NodeStorage::DeleteFile",
                       "-995 NodeStorage::FileExists", "-995 NodeStorage::FileSize"}));
    EXPECT_FALSE(storage_.FileExists(std::string(505, 'n')));
    // Whatever else the storage refuses, it refuses itself.
    for (const std::string& name :
         {std::string(), std::string("a/b"), std::string("/user/source"), std::string(".."), std::string("a\0b", 3)}) {
        EXPECT_EQ(Outcomes(name),
                  Journal({"-999 NodeStorage::ReadFile", "-994 NodeStorage::WriteFile", "-999 NodeStorage::CopyFile",
                           "-994 NodeStorage::WriteFile", "-999 NodeStorage::CopyForDiagnosis",
                           "-994 NodeStorage::DeleteFile", "nothing", "-999 NodeStorage::FileSize"}))
            << name;
        EXPECT_TRUE(NodeStorage::IsFileNameValid(name));
    }
    EXPECT_TRUE(NodeStorage::IsFileNameCharValid('\0'));
}

TEST_F(NodeStorageTest, NamesOfUpTo150CharactersAreWritten)
{
    const std::string longest = std::string(149, ' ') + "\x01";
    Write(longest);
    const VxTestSupport::ScopedLogCapture log;
    // The length comes first, even when there is a forbidden character.
    EXPECT_EQ(MessageThrown([&] { Write(std::string(151, ':')); }), "-997 File name exceeds max length (150).");
    EXPECT_EQ(LogOf(log), Journal({"sensor: E File name exceeds max length (150)."}));
    EXPECT_EQ(Thrown([&] { storage_.CopyForDiagnosis(longest, 5); }), "-997 NodeStorage::WriteFile");
    EXPECT_THAT(files_.Names(), ElementsAre(longest));
}

TEST_F(NodeStorageTest, FilesAreWrittenReadSizedCopiedAndDeleted)
{
    Write("a", std::string("\0\xff text", 7));
    EXPECT_EQ(storage_.ReadFile("a"), ToBytes(std::string("\0\xff text", 7)));
    EXPECT_EQ(storage_.FileSize("a"), 7U);
    storage_.CopyFile("a", "b");
    storage_.WriteFile("a", nullptr, 0);
    EXPECT_THAT(storage_.ReadFile("a"), IsEmpty());
    files_.Mark();
    EXPECT_EQ(Thrown([&] { storage_.CopyFile("x", "b"); }), "-999 NodeStorage::CopyFile");
    for (const char* target : {"a", "b"}) {
        EXPECT_EQ(Thrown([&] { storage_.CopyFile("a", target); }), "-987 NodeStorage::CopyFile");
    }
    EXPECT_TRUE(files_.Unchanged());
    EXPECT_EQ(Text("b"), std::string("\0\xff text", 7));
    storage_.DeleteFile("a");
    EXPECT_EQ(Thrown([&] { storage_.DeleteFile("a"); }), "-999 NodeStorage::DeleteFile");

    // A file that goes away between the two checks reads as empty, after them it is missing.
    files_.BeforeNext(FileOp::Exists, "b", 2, [&] { files_.Remove("b"); });
    EXPECT_THAT(storage_.ReadFile("b"), IsEmpty());
    Write("a");
    files_.BeforeNext(FileOp::Download, "a", 1, [&] { files_.Remove("a"); });
    EXPECT_EQ(Thrown([&] { storage_.ReadFile("a"); }), "-999 NodeStorage::ReadFile");
}

TEST_F(NodeStorageTest, DiagnosisCopiesFillTheFreeNumbersAndThenReuseTheLast)
{
    const struct
    {
        Journal present;
        unsigned long long maxCopies;
        std::string written;
    } cases[] = {
        {{}, 5, "x.d01"},        {{"x.d01", "x.d02"}, 5, "x.d03"},
        {{"x.d02"}, 5, "x.d01"}, {{"x.d01", "x.d02", "x.d03", "x.d04", "x.d05"}, 5, "x.d05"},
        {{"x.d01"}, 1, "x.d01"},
    };
    for (const auto& c : cases) {
        RemoveFiles();
        files_.Put("x", "bad");
        for (const std::string& name : c.present) {
            files_.Put(name, "old");
        }
        files_.Mark();
        const Journal said{"Persistence/NodeStorage: I File '" + c.written + "' saved for diagnosis."};
        const VxTestSupport::ScopedLogCapture log;
        EXPECT_EQ(storage_.CopyForDiagnosis("x", c.maxCopies), c.written);
        EXPECT_EQ(LogOf(log), said);
        for (const std::string& name : files_.Names()) {
            EXPECT_TRUE(name == c.written ? Text(name) == "bad" : files_.Unchanged(name)) << name;
        }
        // Moved likewise, without being read.
        files_.Remove(c.written);
        for (const std::string& name : c.present) {
            files_.Put(name, "old");
        }
        files_.FailNext(FileOp::Download, "", 1, ERROR_IO);
        EXPECT_EQ(storage_.MoveForDiagnosis("x", c.maxCopies), c.written);
        EXPECT_EQ(LogOf(log), Journal({said[0], said[0]}));
        EXPECT_EQ(Text("x") + Text(c.written), "(missing)bad");
        files_.ClearFaults();
    }
    files_.Put("x", "bad");
    files_.Mark();
    EXPECT_EQ(storage_.CopyForDiagnosis("x", 0) + storage_.MoveForDiagnosis("x", 0), "");
    EXPECT_EQ(Thrown([&] { storage_.CopyForDiagnosis("missing", 0); }), "-999 NodeStorage::CopyForDiagnosis");
    EXPECT_EQ(Thrown([&] { storage_.MoveForDiagnosis("missing", 0); }), "-999 NodeStorage::MoveForDiagnosis");
    EXPECT_TRUE(files_.Unchanged());
    for (int i = 1; i < 100; ++i) {
        files_.Put("x.d" + std::string(i < 10 ? "0" : "") + std::to_string(i), "old");
    }
    storage_.CopyForDiagnosis("x", 1000);
    EXPECT_EQ(Text("x.d100"), "bad");
}

TEST_F(NodeStorageTest, ListsByTheExactExtension)
{
    for (const char* name : {"a.vpjob", ".vpjob", "c.VPJOB", "d.vpjob.txt", "e.vpjobs", "f.txt.vpjob", "vpjob", "g.",
                             "h.abcdefghijklmno", "i.abcdefghijklmnop"}) {
        files_.Put(name, "");
    }
    EXPECT_EQ(storage_.ListFiles(""), files_.Names());
    EXPECT_THAT(storage_.ListFiles("vpjob"), ElementsAre(".vpjob", "a.vpjob", "f.txt.vpjob"));
    EXPECT_THAT(storage_.ListFiles("abcdefghijklmno"), ElementsAre("h.abcdefghijklmno"));
    EXPECT_THAT(storage_.ListFiles("abcdefghijklmnop"), IsEmpty());
    EXPECT_THAT(storage_.ListFiles(".vpjob"), IsEmpty());
}

TEST_F(NodeStorageTest, NamesAreTakenApartAndTrimmed)
{
    EXPECT_EQ(NodeStorage::GetExtension("a.b.txt"), "txt");
    for (const char* none : {"a", "a.abcdefghijklmnop"}) {
        EXPECT_EQ(NodeStorage::GetExtension(none), "") << none;
    }
    EXPECT_EQ(NodeStorage::AppendExtension("", ""), ".");
    EXPECT_EQ(NodeStorage::StripExtension("a.b.txt"), "a.b");
    EXPECT_EQ(NodeStorage::StripExtension(std::string(255, 'a') + ".x").size(), 255U);
    EXPECT_EQ(Thrown([] { NodeStorage::StripExtension(std::string(256, 'a') + ".x"); }),
              "-995 NodeStorage::StripExtension");
    EXPECT_EQ(NodeStorage::Trim("  a b  ", " "), "a b");
    EXPECT_EQ(NodeStorage::Trim("   ", " "), "");
    EXPECT_EQ(NodeStorage::Trim(" a ", ""), " a ");
    EXPECT_EQ(NodeStorage::Trim("\xff\tx\xff", "\t\xff"), "x");
}

}  // namespace
}  // namespace VxCommon
