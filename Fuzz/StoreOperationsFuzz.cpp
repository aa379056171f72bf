// Any sequence of operations: a store and a scoped view of it answer like a std::map.

#include <cstdio>
#include <cstdlib>

#include <VxTestSupport/StoreModel.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string difference = VxTestSupport::StoreModel(data, size).Run();
    if (!difference.empty()) {
        std::fprintf(stderr, "%s\n", difference.c_str());
        std::abort();
    }
    return 0;
}
