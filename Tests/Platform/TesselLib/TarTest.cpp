// The writer and the reader of tar archives, and the archive in memory that stands on the reader.

#include <algorithm>
#include <clocale>

#include <gmock/gmock.h>

#include <TesselLib/Archive.h>
#include <TesselLib/Tar.h>
#include <VxTestSupport/FailingAllocator.h>
#include <VxTestSupport/RawTar.h>
#include <VxTestSupport/Streams.h>

using namespace Nucleo::Statuses;
using TesselLib::TarEntry;
using TesselLib::TarReader;
using TesselLib::TarWriter;
using VxTestSupport::PieceStream;
using VxTestSupport::RawTar;
using VxTestSupport::StreamOf;
using VxTestSupport::tarEnd;

namespace
{

using File = std::pair<std::string, std::string>;  // name and content

std::string Write(const std::vector<File>& files)
{
    PieceStream target({});
    TarWriter writer;
    EXPECT_EQ(writer.Open(target), OK);
    for (const File& file : files) {
        EXPECT_EQ(writer.WriteFile(file.first, *StreamOf(file.second), file.second.size()), OK) << file.first;
    }
    EXPECT_EQ(writer.Close(), OK);
    return target.Content();
}

struct Outcome
{
    std::vector<File> files;          // The regular ones that could be read whole.
    std::vector<std::string> others;  // Names of the entries of other types.
    Nucleo::Status status = OK;       // What ended it.
    bool cutData = false;             // It ended within an entry's data.
    bool operator==(const Outcome&) const = default;
};

/// Reads as a careful user does: the claimed size is compared with what is left.
Outcome ReadFrom(Nucleo::Stream& stream)
{
    Outcome outcome;
    TarReader reader;
    EXPECT_EQ(reader.Open(stream), OK);
    for (;;) {
        char name[512];
        TarEntry entry;
        outcome.status = reader.NextEntry(name, sizeof name, &entry);
        if (outcome.status != OK) {
            EXPECT_EQ(reader.NextEntry(name, sizeof name, &entry), outcome.status);
            return outcome;
        }
        std::string data(std::min<std::uint64_t>({entry.size, reader.BytesLeft(), 1 << 20}), '\0');
        outcome.status = reader.Read(data.data(), data.size());
        if (data.size() < entry.size && outcome.status == OK) {
            char more = 0;
            outcome.status = reader.Read(&more, 1);
        }
        if (outcome.status != OK) {
            outcome.cutData = true;
            return outcome;
        }
        if (entry.type == 0) {
            outcome.files.push_back({name, data});
        } else {
            outcome.others.emplace_back(name);
        }
    }
}

/// What lies in memory and what comes through a pipe is read alike.
Outcome Read(const std::string& bytes)
{
    PieceStream pipe(bytes);
    const Outcome outcome = ReadFrom(*StreamOf(bytes));
    EXPECT_EQ(ReadFrom(pipe), outcome);
    return outcome;
}

TEST(TarTest, NamesComeBackAsTheyWere)
{
    std::vector<File> files;
    const auto add = [&](std::string name) { files.push_back({std::move(name), std::to_string(files.size())}); };
    for (std::size_t length = 1; length <= 511; ++length) {
        add(std::string(length, 'n'));
        for (const std::size_t step : {2U, 7U, 60U, 101U, 156U, 200U}) {
            std::string folders(length, 'f');
            for (std::size_t i = step; i + 1 < length; i += step + 1) {
                folders[i] = '/';
            }
            add(std::move(folders));
        }
    }
    for (int byte = 1; byte < 256; ++byte) {
        for (const std::size_t length : {1U, 98U, 254U}) {
            add(std::string(length, 'b') + static_cast<char>(byte) + "b");
        }
    }
    for (const char* name : {".", "..", "./a", "a/.", "a/..", "a ", " ", "a//b", "a\n12 path=b", "PaxHeader/a", "/ "}) {
        add("x" + std::string(name));
        add("x" + std::string(120, 'y') + name);
    }
    add(".");
    add("./a");
    add("x" + std::string(260, 'y') + "e\xCC\x81");  // a letter and its accent: not to be composed
    // Exactly one leading "/" of what is written is left out.
    for (std::size_t length = 96; length < 104; ++length) {
        add("/" + std::string(length, 's'));
        add("//" + std::string(length, 'd'));
    }
    std::vector<File> written = files;
    for (File& file : written) {
        file.first.insert(0, 1, '/');
    }
    // Conversions between character sets depend on the program's locale: none may take place.
    for (const char* locale : {"C", "C.UTF-8"}) {
        ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr);
        const Outcome outcome = Read(Write(written));
        EXPECT_EQ(outcome.status, ERROR_END);
        EXPECT_EQ(outcome.files, files) << locale;
    }
    std::setlocale(LC_ALL, "C");
}

TEST(TarTest, RefusesNamesThatCouldNotComeBack)
{
    using namespace std::string_literals;
    PieceStream target({});
    TarWriter writer;
    const auto content = StreamOf("data");
    EXPECT_EQ(writer.WriteFile("a", *content, 0), ERROR_STATE);
    ASSERT_EQ(writer.Open(target), OK);
    const std::string longest(511, 'n');
    for (const std::string& name : {""s, "/"s, "a/"s, "//"s, "a\0b"s, longest + "n", "/" + longest + "n"}) {
        EXPECT_EQ(writer.WriteFile(name, *content, 4), ERROR_PARAMETER) << name;
    }
    EXPECT_EQ(writer.WriteFile("a", *content, 5), ERROR_END);
    EXPECT_EQ(writer.WriteFile("a", *content, 4), OK);
    EXPECT_EQ(writer.Close(), OK);
    EXPECT_EQ(writer.Close(), ERROR_STATE);
    EXPECT_THAT(Read(target.Content()).files, testing::ElementsAre(File{"a", "data"}));
}

TEST(TarTest, AFailureBreaksTheArchiveOff)
{
    const std::string whole = Write({{"a", std::string(700, 'x')}, {std::string(200, 'n'), "y"}});
    for (std::size_t room = 0; room < whole.size(); room += 512) {
        PieceStream target({}, PieceStream::whole, room + 100);
        TarWriter writer;
        ASSERT_EQ(writer.Open(target), OK);
        Nucleo::Status status = writer.WriteFile("a", *StreamOf(std::string(700, 'x')), 700);
        if (status == OK) {
            status = writer.WriteFile(std::string(200, 'n'), *StreamOf("y"), 1);
        }
        EXPECT_EQ(status == OK ? writer.Close() : status, ERROR_DISK_FULL) << room;
        EXPECT_EQ(writer.WriteFile("b", *StreamOf(""), 0), ERROR_STATE);
    }
    // A content of unknown length that turns out too short. End blocks would make the archive look whole.
    PieceStream target({});
    PieceStream content("only 13 bytes");
    TarWriter writer;
    ASSERT_EQ(writer.Open(target), OK);
    EXPECT_EQ(writer.WriteFile("a", content, 14), ERROR_END);
    EXPECT_EQ(writer.Close(), ERROR_STATE);
    EXPECT_EQ(target.Content().size(), 512u);
    {
        TarWriter forgotten;
        ASSERT_EQ(forgotten.Open(target), OK);
        ASSERT_EQ(forgotten.WriteFile("a", *StreamOf("1"), 1), OK);
    }
    EXPECT_EQ(target.Content().size(), 512u + 1024u);
}

TEST(TarTest, BytesThatAreNoArchive)
{
    // Compressed archives are no archives here: only tar is read.
    for (const std::string& bytes : {std::string(), std::string("x"), std::string(5000, 'x'),
                                     std::string("\x28\xB5\x2F\xFD\x04\x00\x01\x00\x00", 9)}) {
        EXPECT_EQ(Read(bytes).status, ERROR_FORMAT) << bytes;
    }
    EXPECT_EQ(Read(tarEnd).status, ERROR_END);
    EXPECT_EQ(Read(std::string(512, '\0')).status, ERROR_END);
    EXPECT_EQ(Read(RawTar("a", '0', "1") + std::string(512, 'x') + RawTar("b", '0', "2")),
              (Outcome{{File{"a", "1"}}, {}, ERROR_FORMAT}));
    PieceStream failing(Write({{"a", "1"}}), PieceStream::whole, 1);
    EXPECT_EQ(ReadFrom(failing).status, ERROR_IO);
}

TEST(TarTest, CutAtEachLengthAndFlippedAtEachByte)
{
    const std::vector<File> files{
        {"a", std::string(600, '1')}, {std::string(130, 'l'), "22"}, {"c", ""}, {"d", "4444"}};
    std::string image = Write(files);
    std::size_t cutInData = 0;
    for (std::size_t length = 0; length < image.size(); ++length) {
        const Outcome outcome = Read(image.substr(0, length));
        ASSERT_LE(outcome.files.size(), files.size());
        EXPECT_TRUE(std::equal(outcome.files.begin(), outcome.files.end(), files.begin())) << length;
        EXPECT_TRUE(!outcome.cutData || outcome.status == ERROR_END) << length;
        cutInData += outcome.cutData ? 1 : 0;
    }
    EXPECT_EQ(cutInData, 600u + 2u + 4u) << "each length that ends within an entry's data";

    image.insert(0, RawTar("folder", '5', "data of a folder"));
    for (std::size_t i = 0; i < image.size(); ++i) {
        for (const char flip : {'\x01', '\x80', '\xFF'}) {
            image[i] = static_cast<char>(image[i] ^ flip);
            EXPECT_THAT(Read(image).status, testing::AnyOf(ERROR_END, ERROR_FORMAT)) << i;
            image[i] = static_cast<char>(image[i] ^ flip);
        }
    }
}

TEST(TarTest, DataOfEntriesThatAreNoFilesLosesNothingBehindIt)
{
    const std::string contents[] = {"x", std::string(700, 'x'), std::string(700, '\0'), std::string(200'000, 'x'),
                                    std::string(1024, '\0') + std::string(100'000, 'x')};
    for (const std::string& content : contents) {
        for (const char type : {'1', '2', '3', '4', '5', '6'}) {
            const std::string other = RawTar("other", type, content);
            EXPECT_EQ(Read(RawTar("a", '0', "1") + other + RawTar("b", '0', "2") + other + other +
                           RawTar("c", '0', "3") + tarEnd),
                      (Outcome{{{"a", "1"}, {"b", "2"}, {"c", "3"}}, {"other", "other", "other"}, ERROR_END}))
                << "type " << type << ", " << content.size() << " bytes";
        }
        EXPECT_EQ(Read(RawTar("a/", '0', content) + RawTar("b", '0', "2") + tarEnd),
                  (Outcome{{File{"b", "2"}}, {"a/"}, ERROR_END}));
    }
    // At each place in the reader's buffer.
    for (std::size_t blocks = 120; blocks <= 132; ++blocks) {
        const File large{"a", std::string(blocks * 512, 'a')};
        EXPECT_EQ(
            Read(RawTar("a", '0', large.second) + RawTar("other", '1', contents[1]) + RawTar("b", '0', "2") + tarEnd),
            (Outcome{{large, {"b", "2"}}, {"other"}, ERROR_END}));
    }
    // A size without data, such as a folder's quota, and a link whose size is that of the file it names.
    for (const char type : {'1', '5'}) {
        const std::string hinted = RawTar("other", type, "", 4096);
        EXPECT_THAT(Read(hinted + RawTar("b", '0', "2") + tarEnd).files, testing::ElementsAre(File{"b", "2"}));
        for (const std::string& end : {tarEnd, std::string()}) {
            const Outcome outcome = Read(RawTar("a", '0', "1") + hinted + end);
            EXPECT_TRUE(outcome.status == ERROR_END && !outcome.cutData);
        }
    }
}

TEST(TarTest, PassesOverDataThatIsNotReadAndSaysWhatIsLeft)
{
    const std::string image = RawTar("folder", '5', std::string(3000, 'x')) + RawTar("b", '0', std::string(3000, 'y')) +
                              RawTar("c", '0', "3") + tarEnd;
    const auto stream = StreamOf(image);
    TarReader reader;
    TarEntry entry;
    char name[3];
    ASSERT_EQ(reader.Open(*stream), OK);
    for (const char* expected : {"fo", "b", "c"}) {
        ASSERT_EQ(reader.NextEntry(name, sizeof name, &entry), OK);
        EXPECT_STREQ(name, expected) << "cut to the room";
    }
    EXPECT_EQ(entry.size, 1u);
    EXPECT_EQ(reader.NextEntry(name, 0, &entry), ERROR_PARAMETER);
    EXPECT_EQ(reader.NextEntry(name, sizeof name, &entry), ERROR_END);
    // The same at the end of an archive without end blocks, and of one that is cut.
    for (const auto& [length, status] :
         {std::pair{512 + 3072, ERROR_END}, {512 + 3000, ERROR_END}, {512 + 2999, ERROR_FORMAT}}) {
        const auto cut = StreamOf(std::string_view(image).substr(0, static_cast<std::size_t>(length)));
        ASSERT_EQ(reader.Open(*cut), OK);
        ASSERT_EQ(reader.NextEntry(name, sizeof name, &entry), OK);
        EXPECT_EQ(reader.NextEntry(name, sizeof name, &entry), status) << length;
    }
    // A claimed size is reported, and can be compared with what is left.
    const std::string claim = RawTar("a", '0', "x", std::uint64_t{8} << 30) + std::string(1024, 'x');
    const auto claiming = StreamOf(claim);
    char byte = 0;
    ASSERT_EQ(reader.Open(*claiming), OK);
    EXPECT_EQ(reader.BytesLeft(), claim.size());
    EXPECT_EQ(reader.Read(&byte, 1), ERROR_STATE);
    ASSERT_EQ(reader.NextEntry(name, sizeof name, &entry), OK);
    EXPECT_EQ(entry.size, std::uint64_t{8} << 30);
    EXPECT_EQ(reader.BytesLeft(), 512u + 1024u);
    EXPECT_EQ(reader.Read(&byte, 1), OK);
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(reader.NextEntry(name, sizeof name, &entry), ERROR_FORMAT);
}

TEST(TarTest, ReadsWhatOtherWritersMake)
{
    // A record's length counts its own digits.
    const auto record = [](const std::string& text) {
        std::size_t length = text.size() + 3;
        length += std::to_string(length + std::to_string(length).size() - 1).size() - 1;
        return std::to_string(length) + " " + text + "\n";
    };
    const std::string name = "k\xC3\xB6nig/" + std::string(150, 'n');
    const std::string pax = RawTar("pax", 'x', record("path=" + name) + record("mtime=1.5")) + RawTar("cut", '0', "1");
    const std::string gnu = RawTar("././@LongLink", 'L', name + '\0') + RawTar("cut", '0', "2");
    const std::string old = RawTar("old", '\0', "3") + RawTar("contiguous", '7', "4") + RawTar("sym", '2', "");
    const Outcome outcome = Read(pax + gnu + old + tarEnd + std::string(8192, '\0'));
    EXPECT_EQ(outcome.status, ERROR_END);
    EXPECT_THAT(outcome.files,
                testing::ElementsAre(File{name, "1"}, File{name, "2"}, File{"old", "3"}, File{"contiguous", "4"}));
    EXPECT_THAT(outcome.others, testing::ElementsAre("sym"));
}

TEST(ArchiveTest, ReadsAllOrNothing)
{
    VxTestSupport::FailingAllocator allocator;
    Nucleo::Handle<TesselLib::Archive> archive;
    ASSERT_EQ(TesselLib::Archive_Construct(archive.Receive(), &allocator), OK);
    const auto content = [&](std::string_view name) {
        const std::uint8_t* data = nullptr;
        std::size_t size = 0;
        const Nucleo::Status status = archive->Find(name, &data, &size);
        EXPECT_EQ(data == nullptr, status != OK);
        return status == OK ? std::string(data, data + size) : std::string(Nucleo::StatusName(status));
    };
    const std::string image = Write({{"config", "1"}, {"empty", ""}, {"config", "2"}});
    const std::pair<std::string, Nucleo::Status> readings[] = {{image, OK},
                                                               {image.substr(0, 512), ERROR_END},
                                                               {image.substr(0, 700), ERROR_FORMAT},
                                                               {std::string(2000, 'x'), ERROR_FORMAT},
                                                               {"", ERROR_FORMAT}};
    for (const auto& [bytes, status] : readings) {
        EXPECT_EQ(archive->Read(*StreamOf(bytes)), status);
        EXPECT_EQ(archive->Count(), 3u) << "a failed reading leaves the content";
        EXPECT_EQ(archive->Name(1), "empty");
        EXPECT_EQ(archive->Name(3), "");
        EXPECT_EQ(content("config"), "2");
        EXPECT_EQ(content("empty"), "");
        EXPECT_EQ(content("other"), "ERROR_NOT_FOUND");
    }
    const int before = allocator.Allocations();
    PieceStream pipe(RawTar("a", '0', "", TesselLib::Archive::MaxSize + 1));
    EXPECT_EQ(archive->Read(pipe), ERROR_LIMIT);
    EXPECT_EQ(allocator.Allocations(), before) << "memory is taken before the size is looked at";
    EXPECT_EQ(archive->Read(*StreamOf(tarEnd)), OK);
    EXPECT_EQ(archive->Count(), 0u);
}

}  // namespace
