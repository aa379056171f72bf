#pragma once
// What tests do with a storage, in texts.

#include <gmock/gmock.h>

#include <TesselLib/Storage.h>

class StorageFixture : public testing::Test
{
protected:
    virtual TesselLib::Storage& Storage() = 0;

    Nucleo::Status Upload(std::string_view path, std::string_view text)
    {
        return Storage().Upload(path, reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    }

    /// The file's content, or the name of the status that reading it answered.
    std::string Download(std::string_view path)
    {
        Nucleo::Handle<Nucleo::MemoryStream> stream;
        Nucleo::MemoryStream_Construct(stream.Receive());
        const Nucleo::Status status = Storage().Download(path, *stream);
        const auto bytes = stream->TakeContent();
        return status == Nucleo::OK ? std::string(bytes.begin(), bytes.end()) : std::string(Nucleo::StatusName(status));
    }

    std::vector<std::string> List()
    {
        std::vector<std::string> names{"left over"};
        EXPECT_EQ(Storage().List("/user", &names), Nucleo::OK);
        return names;
    }
};
