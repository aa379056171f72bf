#pragma once

#include <VxCommon/Persistence/PersistRecord.h>

namespace VxCommon::Persist
{

/// The WORKSPACE in memory.
class VXCOMMON_API Workspace final : public Record
{
public:
    /// The file on the node's storage that holds the image.
    static const char* const WORKSPACE_FILE;
};

}  // namespace VxCommon::Persist
