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

    /// As Global::Load.
    void Load(const unsigned char* data, unsigned long long size) { LoadImage(data, size); }
};

}  // namespace VxCommon::Persist
