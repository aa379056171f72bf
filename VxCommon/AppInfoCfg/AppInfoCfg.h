#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <VxCommon/VcLib/Export.h>

namespace VxCommon
{

/// Which version of the application, of which release type, made a piece of stored data; written next to the data as a
/// short XML text. Where its bytes are kept is the caller's affair. Both fields are any text. Not locked.
class VXCOMMON_API AppInfoCfg
{
public:
    /// Room for each field, its terminator included, when it is read.
    static constexpr std::size_t TextCapacity = 32;

    std::string& ProductionVersion() noexcept { return productionVersion_; }
    const std::string& ProductionVersion() const noexcept { return productionVersion_; }
    void SetProductionVersion(const std::string& version) { productionVersion_ = version; }

    std::string& ReleaseType() noexcept { return releaseType_; }
    const std::string& ReleaseType() const noexcept { return releaseType_; }

    /// The XML text, without a terminator. A text of TextCapacity bytes and more is written, but cannot be read. Throws
    /// Vx::Exception with ERROR_MEMORY when there is no memory.
    std::vector<unsigned char> Write() const;

    /// Takes both fields from an XML text of `size` bytes. Throws Vx::Exception: ERROR_FORMAT or ERROR_LIMIT for data
    /// that is no XML document, ERROR_NOT_FOUND for a field that is missing, ERROR_CAPACITY for one that is too long,
    /// ERROR_MEMORY when there is no memory.
    /// A field that was read before the failing one keeps its new value.
    void Read(const void* data, std::size_t size);
    void Read(const std::vector<unsigned char>& data);

private:
    std::string productionVersion_;
    std::string releaseType_;
};

}  // namespace VxCommon
