#pragma once
// Runs operations on a store, directly and through a scoped view of it, and on a std::map beside it, and says where the
// two first differ. The operations are read from bytes, so that a fuzzer can choose them.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <Nucleo/Status.h>
#include <VxApi/Exception.h>
#include <VxCommon/Persistence/PersistStore.h>
#include <VxCommon/Persistence/ScopedPersistStore.h>

namespace VxTestSupport
{

class StoreModel
{
public:
    StoreModel(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {}
    StoreModel(const StoreModel&) = delete;
    StoreModel& operator=(const StoreModel&) = delete;

    /// Runs until the bytes are used up. What differed first; empty when nothing did.
    std::string Run()
    {
        while (next_ != end_) {
            const std::string difference = Step();
            if (!difference.empty()) {
                return difference;
            }
        }
        return Compare("the end", store_.List("", true), Listed("", true));
    }

private:
    using Keys = std::vector<std::string>;
    using Contents = std::vector<std::uint8_t>;

    std::uint8_t Byte() { return next_ != end_ ? *next_++ : std::uint8_t{0}; }

    std::string Path()
    {
        static const char* const pieces[] = {"/", "/a", "/b", "/ab", "a", "/S", "//", ""};
        std::string path;
        for (std::uint8_t choice = Byte(); choice != 0; choice = static_cast<std::uint8_t>(choice >> 3)) {
            path += pieces[choice & 7];
        }
        return path;
    }

    std::string Step()
    {
        const std::uint8_t operation = Byte();
        const bool scoped = (operation & 0x80) != 0;
        VxCommon::IPersistStore& store = scoped ? static_cast<VxCommon::IPersistStore&>(view_) : store_;
        const std::string path = Path();
        const std::string full = (scoped ? "/S" : "") + path;
        const std::string what =
            (scoped ? "scoped operation " : "operation ") + std::to_string(operation & 7) + " at '" + path + "'";
        switch (operation & 7) {
            case 0:
            case 1: {
                const Contents contents(operation >> 3 & 7, Byte());
                store.Write(path, contents.data(), contents.size());
                model_[full] = contents;
                return {};
            }
            case 2:
                store.Delete(path);
                model_.erase(full);
                return {};
            case 3:
                return store.Exists(path) == model_.contains(full) ? std::string() : what + ": Exists differs";
            case 4:
                try {
                    const Contents contents = store.Read(path);
                    return model_.contains(full) && model_[full] == contents ? std::string()
                                                                             : what + ": contents differ";
                } catch (const Vx::Exception& exception) {
                    return !model_.contains(full) && exception.Status() == Nucleo::ERROR_NOT_FOUND
                               ? std::string()
                               : what + ": Read failed: " + exception.what();
                }
            case 5: {
                const bool recursive = (operation & 0x40) != 0;
                Keys expected = Listed(full, recursive || (scoped && path.empty()));
                for (std::string& key : expected) {
                    key.erase(0, scoped ? 2 : 0);  // "/S"
                }
                return Compare(what, store.List(path, recursive), expected);
            }
            case 6:
                if ((operation & 0x70) != 0) {
                    return {};  // Seldom, or nothing would be left to differ.
                }
                store.Clear();
                if (scoped) {
                    for (const std::string& key : Listed("/S", true)) {
                        model_.erase(key);
                    }
                } else {
                    model_.clear();
                }
                return {};
            default: {
                VxCommon::PersistStore copy(store_);
                store_.Clear();
                store_ = copy;
                return {};
            }
        }
    }

    static Keys Segments(const std::string& path)
    {
        Keys segments;
        std::istringstream pieces(path);
        for (std::string piece; std::getline(pieces, piece, '/');) {
            segments.insert(segments.end(), piece.empty() ? 0 : 1, piece);
        }
        return segments;
    }

    Keys Listed(const std::string& path, bool recursive) const
    {
        const Keys base = Segments(path);
        Keys keys;
        for (const auto& [key, contents] : model_) {
            const Keys segments = Segments(key);
            if (segments.size() > base.size() && std::equal(base.begin(), base.end(), segments.begin()) &&
                (recursive || base.empty() || segments.size() == base.size() + 1)) {
                keys.push_back(key);
            }
        }
        return keys;
    }

    static std::string Compare(const std::string& what, const Keys& found, const Keys& expected)
    {
        if (found == expected) {
            return {};
        }
        return what + ": listed " + testing::PrintToString(found) + " instead of " + testing::PrintToString(expected);
    }

    const std::uint8_t* next_;
    const std::uint8_t* end_;
    VxCommon::PersistStore store_;
    VxCommon::ScopedPersistStore view_{store_, "S"};
    std::map<std::string, Contents> model_;
};

}  // namespace VxTestSupport
