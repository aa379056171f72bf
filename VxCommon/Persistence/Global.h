#pragma once

#include <VxCommon/Persistence/PersistRecord.h>

namespace VxCommon::Persist
{

/// The GLOBAL settings in memory.
class VXCOMMON_API Global final : public Record
{
public:
    /// The file on the node's storage that holds the image.
    static const char* const GLOBAL_FILE;

    /// Replaces the content by the image's. An empty or damaged image gives an empty or partial content; only one that
    /// is cut inside an entry throws, and then the content stays.
    void Load(const unsigned char* data, unsigned long long size) { LoadImage(data, size); }
};

}  // namespace VxCommon::Persist
