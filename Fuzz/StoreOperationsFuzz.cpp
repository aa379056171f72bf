// Any sequence of operations: a store and a scoped view of it answer like a std::map.

#include <VxTestSupport/StoreModel.h>

#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string difference = VxTestSupport::StoreModel(data, size).Run();
    Require(difference.empty(), difference.c_str());
    return 0;
}
