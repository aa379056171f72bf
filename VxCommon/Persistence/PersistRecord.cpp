#include <VxCommon/Persistence/PersistRecord.h>
#include <VxCommon/Persistence/PersistUtils.h>

namespace VxCommon::Persist
{

std::vector<unsigned char> Record::Save() const
{
    return PersistUtils::ArchiveStore(store_);
}

void Record::LoadImage(const unsigned char* data, unsigned long long size)
{
    store_ = PersistUtils::DearchiveStore(data, size);
}

}  // namespace VxCommon::Persist
