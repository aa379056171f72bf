// Any bytes as a store's image: it is read or refused with the library's exception, and what was read survives being
// archived and read again, byte for byte.

#include <Nucleo/Status.h>
#include <VxApi/Exception.h>
#include <VxCommon/Persistence/PersistUtils.h>

#include "FuzzSupport.h"

using VxCommon::PersistStore;
using VxCommon::PersistUtils;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    PersistStore store;
    try {
        store = PersistUtils::DearchiveStore(data, size);
    } catch (const Vx::Exception&) {
        return 0;
    }
    std::vector<unsigned char> image;
    try {
        image = PersistUtils::ArchiveStore(store);
    } catch (const Vx::Exception& exception) {
        Require(exception.Status() == Nucleo::ERROR_PARAMETER);  // A name that would not come back, such as "a/".
        return 0;
    }
    const PersistStore copy = PersistUtils::DearchiveStore(image.data(), image.size());
    Require(copy.List("", true) == store.List("", true));
    for (const std::string& key : store.List("", true)) {
        Require(copy.Read(key) == store.Read(key));
    }
    Require(PersistUtils::ArchiveStore(copy) == image);
    return 0;
}
