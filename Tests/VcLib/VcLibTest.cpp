// How the assembly comes about when memory is short.

#include <gtest/gtest.h>

#include <VxCommon/VcLib/VcLib.h>
#include <VxTestSupport/FailingAllocator.h>
#include <VxTestSupport/ScopedDefaultAllocator.h>

using namespace Nucleo::Statuses;

namespace
{

TEST(VcLibTest, AFailureLeavesNothingAndTheNextCallTriesAgain)
{
    {
        VxTestSupport::FailingAllocator allocator(0);
        const VxTestSupport::ScopedDefaultAllocator scoped(allocator);
        auto* assembly = reinterpret_cast<Nucleo::Assembly*>(1);
        EXPECT_EQ(VcLib_Construct(&assembly), ERROR_MEMORY);
        EXPECT_EQ(assembly, nullptr);
        EXPECT_EQ(allocator.Live(), 0);
    }
    Nucleo::Assembly* assembly = nullptr;
    ASSERT_EQ(VcLib_Construct(&assembly), OK);
    EXPECT_EQ(assembly->References(), 2);  // The process's own, and this one.
    EXPECT_EQ(Nucleo::Destroy(assembly), OK);
}

}  // namespace
