#pragma once

#include <VxCommon/Persistence/PersistRecord.h>

namespace VxCommon::Persist
{

/// A JOB in memory.
class VXCOMMON_API Job final : public Record
{
public:
    /// The name of the live (working) job.
    static const char* const LIVE_JOB_FILE;

    /// The extension of job files, without the ".".
    static const char* const JOB_FILE_EXT;

    /// As Record::Load, but a job holds something: an image without any entry throws Vx::Exception with ERROR_CONTENT,
    /// and leaves the record empty.
    void Load(const unsigned char* data, unsigned long long size);
};

}  // namespace VxCommon::Persist
