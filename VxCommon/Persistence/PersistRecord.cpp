#include <VxCommon/Persistence/PersistRecord.h>
#include <VxCommon/Persistence/PersistUtils.h>

namespace VxCommon::Persist
{

std::vector<unsigned char> Record::Save() const
{
    return PersistUtils::ArchiveStore(store_);
}

std::vector<std::string> Record::UnkeptPaths() const
{
    std::vector<std::string> paths = store_.List("", true);
    std::erase_if(paths, &PersistUtils::IsPathKept);
    return paths;
}

void Record::Load(const unsigned char* data, unsigned long long size)
{
    store_ = PersistUtils::DearchiveStore(data, size);
}

}  // namespace VxCommon::Persist
