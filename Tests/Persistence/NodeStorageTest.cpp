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
    for (const std::string& name : {std::string(), std::string("/user/source"), std::string("a\0b", 3)}) {
        EXPECT_EQ(Outcomes(name),
                  Journal({"-999 NodeStorage::ReadFile", "-994 NodeStorage::WriteFile", "-999 NodeStorage::CopyFile",
                           "-994 NodeStorage::WriteFile", "-999 NodeStorage::CopyForDiagnosis",
                           "-994 NodeStorage::DeleteFile", "nothing", "-999 NodeStorage::FileSize"}))
            << name;
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
    EXPECT_EQ(Thrown([&] { storage_.MoveForDiagnosis(longest, 5); }), "-997 NodeStorage::MoveForDiagnosis");
    EXPECT_THAT(files_.Names(), ElementsAre(longest));
}

TEST_F(NodeStorageTest, FilesAreWrittenReadSizedCopiedAndDeleted)
{
    const std::string text("\0\xff text", 7);
    Write("a", text);
    EXPECT_EQ(storage_.ReadFile("a"), ToBytes(text));
    storage_.CopyFile("a", "b");
    EXPECT_EQ(Text("b"), text);
    EXPECT_EQ(Thrown([&] { storage_.CopyFile("a", "a"); }), "-987 NodeStorage::CopyFile");
    storage_.WriteFile("a", nullptr, 0);
    EXPECT_THAT(storage_.ReadFile("a"), IsEmpty());
    storage_.DeleteFile("a");
    EXPECT_EQ(files_.LastDeletion(), "a") << "the bare name, as the storage is asked for it";

    // A file that goes away between the two checks reads as empty, after them it is missing.
    files_.BeforeNext(FileOp::Exists, "b", 2, [&] { files_.Remove("b"); });
    EXPECT_THAT(storage_.ReadFile("b"), IsEmpty());
    Write("a");
    files_.BeforeNext(FileOp::Download, "a", 1, [&] { files_.Remove("a"); });
    EXPECT_EQ(Thrown([&] { storage_.ReadFile("a"); }), "-999 NodeStorage::ReadFile");
}

TEST_F(NodeStorageTest, DiagnosisCopiesFillTheFreeNumbersAndThenReuseTheLast)
{
    const auto keep = [&](bool move, unsigned long long maxCopies) {
        files_.Put("x", "bad");
        files_.FailNext(FileOp::Download, "", move ? 1 : 99, ERROR_IO);  // What is moved is not read.
        const VxTestSupport::ScopedLogCapture log;
        const std::string name =
            move ? storage_.MoveForDiagnosis("x", maxCopies) : storage_.CopyForDiagnosis("x", maxCopies);
        files_.ClearFaults();
        EXPECT_EQ(LogOf(log), Journal({"Persistence/NodeStorage: I File '" + name + "' saved for diagnosis."}));
        EXPECT_EQ(Text(name) + Text("x"), move ? "bad(missing)" : "badbad");
        files_.Put(name, "old");
        for (const std::string& other : files_.Names()) {
            EXPECT_EQ(Text(other), other == "x" ? "bad" : "old");
        }
        return name;
    };
    for (const bool move : {false, true}) {
        RemoveFiles();
        files_.Put("x.d02", "old");
        Journal names;
        for (const unsigned long long maxCopies : {5U, 1U, 5U, 5U, 5U, 5U, 5U, 1000U}) {
            names.push_back(keep(move, maxCopies));
        }
        EXPECT_THAT(names, ElementsAre("x.d01", "x.d01", "x.d03", "x.d04", "x.d05", "x.d05", "x.d05", "x.d06"));
        for (int i = 7; i < 100; ++i) {
            files_.Put("x.d" + std::string(i < 10 ? "0" : "") + std::to_string(i), "old");
        }
        EXPECT_EQ(keep(move, 1000), "x.d100");
    }
    files_.Put("x", "bad");
    files_.Mark();
    EXPECT_EQ(storage_.CopyForDiagnosis("x", 0) + storage_.MoveForDiagnosis("x", 0), "");
    EXPECT_EQ(Thrown([&] { storage_.CopyForDiagnosis("missing", 0); }), "-999 NodeStorage::CopyForDiagnosis");
    EXPECT_EQ(Thrown([&] { storage_.MoveForDiagnosis("missing", 0); }), "-999 NodeStorage::MoveForDiagnosis");
    EXPECT_TRUE(files_.Unchanged());
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
    EXPECT_EQ(NodeStorage::GetExtension("a.abcdefghijklmnop"), "");
    EXPECT_EQ(NodeStorage::AppendExtension("", ""), ".");
    EXPECT_EQ(NodeStorage::StripExtension("a.b.txt"), "a.b");
    EXPECT_EQ(NodeStorage::StripExtension(std::string(255, 'a') + ".x").size(), 255U);
    EXPECT_EQ(Thrown([] { NodeStorage::StripExtension(std::string(256, 'a') + ".x"); }),
              "-995 NodeStorage::StripExtension");
    EXPECT_EQ(NodeStorage::Trim("   ", " "), "");
    EXPECT_EQ(NodeStorage::Trim("\xff\tx \ty\xff", "\t\xff"), "x \ty");
}

}  // namespace
}  // namespace VxCommon
