#include "CborCheck.h"

#include <string>
#include <vector>

#include <VxApi/Exception.h>

namespace VxRest::Http
{

namespace
{

constexpr std::uint8_t Break = 0xFF;
enum Major : unsigned
{
    Unsigned,
    Negative,
    Bytes,
    Text,
    Array,
    Map,
    Tag,
    Simple
};

struct Head
{
    unsigned major = 0;
    bool indefinite = false;
    std::uint64_t argument = 0;
};

class Walker
{
public:
    Walker(std::span<const std::uint8_t> body, std::size_t depth) : rest_(body), size_(body.size()), depth_(depth) {}

    void Walk()
    {
        // Items that are still to come at each level; a level of indefinite length ends at its break.
        std::vector<Level> levels{{1, false}};
        while (!levels.empty()) {
            Level& level = levels.back();
            if (level.indefinite && Peek() == Break) {
                rest_ = rest_.subspan(1);
                levels.pop_back();
                continue;
            }
            if (!level.indefinite) {
                if (level.items == 0) {
                    levels.pop_back();
                    continue;
                }
                --level.items;
            }
            const Head head = TakeHead();
            switch (head.major) {
                case Bytes:
                case Text:
                    head.indefinite ? SkipChunks(head.major) : Skip(head.argument);
                    break;
                case Array:
                case Map:
                    if (levels.size() > depth_) {
                        VX_THROW(Nucleo::ERROR_PARAMETER, "the body is nested deeper than %lu levels", depth_);
                    }
                    if (!head.indefinite && head.argument > rest_.size() / (head.major == Map ? 2 : 1)) {
                        Fail("claims more elements than it has bytes");
                    }
                    levels.push_back({head.argument * (head.major == Map ? 2 : 1), head.indefinite});
                    break;
                case Tag:
                    // The tagged item follows in the place of this one.
                    if (!levels.back().indefinite) {
                        ++levels.back().items;
                    }
                    break;
                default:
                    break;
            }
        }
    }

private:
    struct Level
    {
        std::uint64_t items;
        bool indefinite;
    };

    [[noreturn]] void Fail(const char* what) const
    {
        VX_THROW(Nucleo::ERROR_PARAMETER, "the CBOR body %s (byte %lu)", what, size_ - rest_.size());
    }

    std::uint8_t Peek() const
    {
        if (rest_.empty()) {
            Fail("breaks off");
        }
        return rest_.front();
    }

    Head TakeHead()
    {
        const std::uint8_t first = Peek();
        rest_ = rest_.subspan(1);
        Head head{static_cast<unsigned>(first >> 5), false, first & 31U};
        if (head.argument == 31) {
            if (head.major < Bytes || head.major > Map) {
                Fail("has a break or an indefinite length in a wrong place");
            }
            head.indefinite = true;
            head.argument = 0;
        } else if (head.argument > 27) {
            Fail("has a reserved length");
        } else if (head.argument >= 24) {
            const std::size_t bytes = std::size_t{1} << (head.argument - 24);
            if (bytes > rest_.size()) {
                Fail("breaks off");
            }
            head.argument = 0;
            for (const std::uint8_t byte : rest_.first(bytes)) {
                head.argument = (head.argument << 8) | byte;
            }
            rest_ = rest_.subspan(bytes);
        }
        return head;
    }

    void Skip(std::uint64_t count)
    {
        if (count > rest_.size()) {
            Fail("claims a string beyond its end");
        }
        rest_ = rest_.subspan(static_cast<std::size_t>(count));
    }

    void SkipChunks(unsigned major)
    {
        while (Peek() != Break) {
            const Head chunk = TakeHead();
            if (chunk.major != major || chunk.indefinite) {
                Fail("has a string of indefinite length with parts that are no plain strings");
            }
            Skip(chunk.argument);
        }
        rest_ = rest_.subspan(1);
    }

    std::span<const std::uint8_t> rest_;
    std::size_t size_;
    std::size_t depth_;
};

}  // namespace

void CheckCbor(std::span<const std::uint8_t> body, std::size_t depth)
{
    Walker(body, depth).Walk();
}

}  // namespace VxRest::Http
