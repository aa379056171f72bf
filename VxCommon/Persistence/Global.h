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
};

}  // namespace VxCommon::Persist
