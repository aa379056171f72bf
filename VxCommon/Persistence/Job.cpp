#include <VxApi/Exception.h>
#include <VxCommon/Persistence/Job.h>
#include <VxCommon/VcLib/Status.h>

namespace VxCommon::Persist
{

const char* const Job::LIVE_JOB_FILE = "_live";
const char* const Job::JOB_FILE_EXT = "vpjob";

void Job::Load(const unsigned char* data, unsigned long long size)
{
    Record::Load(data, size);
    if (GetStore().List("", false).empty()) {
        VX_THROW(ERROR_CONTENT, "Job contains no recognizable data.");
    }
}

}  // namespace VxCommon::Persist
