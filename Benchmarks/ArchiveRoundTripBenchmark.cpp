// What does it cost to turn a store into its image and back? Beside libarchive used directly on the same items, and the
// bare copy of their bytes out of the map and back. Sets: 1,000 items of 1 KiB ("small"), 16 of 1 MiB ("large").

#include <archive.h>
#include <archive_entry.h>

#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>

#include <benchmark/benchmark.h>

#include <VxCommon/Persistence/PersistUtils.h>

namespace
{

using Bytes = std::vector<std::uint8_t>;
using Items = std::map<std::string, Bytes>;

struct Set
{
    const char* name;
    int count;
    std::size_t size;
};
constexpr Set sets[] = {{"small", 1000, 1024}, {"large", 16, 1024 * 1024}};

Items MakeItems(const Set& set)
{
    Items items;
    for (int i = 0; i < set.count; ++i) {
        Bytes bytes(set.size);
        for (std::size_t at = 0; at < bytes.size(); ++at) {
            bytes[at] = static_cast<std::uint8_t>(at * 31 + static_cast<std::size_t>(i));
        }
        items.emplace("/Handler/item" + std::to_string(i), std::move(bytes));
    }
    return items;
}

void Report(benchmark::State& state, const Set& set)
{
    state.SetBytesProcessed(state.iterations() * set.count * static_cast<std::int64_t>(set.size));
}

void Ours(benchmark::State& state, const Set& set)
{
    VxCommon::PersistStore store;
    for (const auto& [key, bytes] : MakeItems(set)) {
        store.Write(key, bytes.data(), bytes.size());
    }
    for (auto _ : state) {
        const Bytes image = VxCommon::PersistUtils::ArchiveStore(store);
        const VxCommon::PersistStore copy = VxCommon::PersistUtils::DearchiveStore(image.data(), image.size());
        if (!copy.Exists("/Handler/item0")) {
            state.SkipWithError("the items did not come back");
        }
    }
    Report(state, set);
}

void Require(bool condition)
{
    if (!condition) {
        throw std::runtime_error("libarchive failed");
    }
}

la_ssize_t Append(archive* /*handle*/, void* state, const void* data, std::size_t size)
{
    auto& image = *static_cast<Bytes*>(state);
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    image.insert(image.end(), bytes, bytes + size);
    return static_cast<la_ssize_t>(size);
}

// The plain way that libarchive's own examples show: one ustar archive in memory.
Bytes WriteDirectly(const Items& items)
{
    Bytes image;
    const std::unique_ptr<archive, int (*)(archive*)> tar(archive_write_new(), &archive_write_free);
    const std::unique_ptr<archive_entry, void (*)(archive_entry*)> entry(archive_entry_new(), &archive_entry_free);
    Require(archive_write_set_format_ustar(tar.get()) == ARCHIVE_OK);
    Require(archive_write_open(tar.get(), &image, nullptr, &Append, nullptr) == ARCHIVE_OK);
    for (const auto& [key, bytes] : items) {
        archive_entry_clear(entry.get());
        archive_entry_set_pathname(entry.get(), key.c_str() + 1);
        archive_entry_set_filetype(entry.get(), AE_IFREG);
        archive_entry_set_perm(entry.get(), 0644);
        archive_entry_set_size(entry.get(), static_cast<la_int64_t>(bytes.size()));
        Require(archive_write_header(tar.get(), entry.get()) == ARCHIVE_OK);
        Require(archive_write_data(tar.get(), bytes.data(), bytes.size()) == static_cast<la_ssize_t>(bytes.size()));
    }
    Require(archive_write_close(tar.get()) == ARCHIVE_OK);
    return image;
}

Items ReadDirectly(const Bytes& image)
{
    Items items;
    const std::unique_ptr<archive, int (*)(archive*)> tar(archive_read_new(), &archive_read_free);
    Require(archive_read_support_format_tar(tar.get()) == ARCHIVE_OK);
    Require(archive_read_open_memory(tar.get(), image.data(), image.size()) == ARCHIVE_OK);
    archive_entry* entry = nullptr;
    while (archive_read_next_header(tar.get(), &entry) == ARCHIVE_OK) {
        Bytes bytes(static_cast<std::size_t>(archive_entry_size(entry)));
        Require(archive_read_data(tar.get(), bytes.data(), bytes.size()) == static_cast<la_ssize_t>(bytes.size()));
        items.emplace(std::string("/") + archive_entry_pathname(entry), std::move(bytes));
    }
    return items;
}

void LibArchive(benchmark::State& state, const Set& set)
{
    const Items items = MakeItems(set);
    for (auto _ : state) {
        if (ReadDirectly(WriteDirectly(items)).size() != items.size()) {
            state.SkipWithError("the items did not come back");
        }
    }
    Report(state, set);
}

void Copy(benchmark::State& state, const Set& set)
{
    const Items items = MakeItems(set);
    Bytes image(static_cast<std::size_t>(set.count) * set.size);
    for (auto _ : state) {
        std::size_t at = 0;
        for (const auto& [key, bytes] : items) {
            std::memcpy(image.data() + at, bytes.data(), bytes.size());
            at += bytes.size();
        }
        Items copy;
        at = 0;
        for (const auto& [key, bytes] : items) {
            copy.emplace(key, Bytes(image.data() + at, image.data() + at + bytes.size()));
            at += bytes.size();
        }
        benchmark::DoNotOptimize(copy);
    }
    Report(state, set);
}

const bool registered = [] {
    for (const Set& set : sets) {
        const auto name = [&set](const char* side) { return std::string("ArchiveRoundTrip/") + side + "/" + set.name; };
        benchmark::RegisterBenchmark(name("ours").c_str(), &Ours, set);
        benchmark::RegisterBenchmark(name("libarchive").c_str(), &LibArchive, set);
        benchmark::RegisterBenchmark(name("memcpy").c_str(), &Copy, set);
    }
    return true;
}();

}  // namespace
