#include <gtest/gtest.h>

#include <Nucleo/Assembly.h>
#include <Nucleo/Stream.h>
#include <Nucleo/ValueTypes.h>
#include <VxTestSupport/FailingAllocator.h>

using namespace Nucleo::Statuses;
using Nucleo::Assembly;
using Nucleo::Type;
using Nucleo::TypeField;
using Nucleo::TypeOverride;

namespace
{

TEST(AssemblyTest, VersionsAreOneToFourNumbers)
{
    const Nucleo::Version before{{9, 9, 9, 9}};
    Nucleo::Version version = before;
    for (const char* text : {"", "1.", ".1", "1..2", "256", "-1", "+1", " 1", "1.2 ", "0x1", "1.2.3.4.5", "1.2.3.4."}) {
        EXPECT_EQ(Nucleo::Version_Parse(text, &version), ERROR_FORMAT) << text;
        EXPECT_EQ(version, before);
    }
    EXPECT_EQ(Nucleo::Version_Parse("255.0.3.40", &version), OK);
    EXPECT_EQ(version, (Nucleo::Version{{255, 0, 3, 40}}));
    EXPECT_EQ(Nucleo::Version_Parse("7.10", &version), OK);
    EXPECT_EQ(version, (Nucleo::Version{{7, 10, 0, 0}}));
}

Nucleo::Handle<Assembly> Make(std::string_view name, Nucleo::Allocator* allocator = nullptr)
{
    Nucleo::Handle<Assembly> assembly;
    EXPECT_EQ(Assembly::Make(assembly.Receive(), name, {{1, 2, 3, 4}}, {{1, 0, 0, 0}}, allocator), OK);
    return assembly;
}

TEST(AssemblyTest, RefusesWhatDoesNotFit)
{
    const auto assembly = Make("App");
    const Type record{"Record", nullptr, 16};
    const TypeField id{"id", &Nucleo::UInt32Type, 0, 2};
    const TypeField refused[][2] = {
        {id, {"id", &Nucleo::UInt32Type, 8}},
        {id, {nullptr, &Nucleo::UInt32Type, 8}},
        {id, {"time", nullptr, 8}},
        {id, {"time", &Nucleo::UInt64Type, 8, 0}},
        {id, {"time", &Nucleo::UInt64Type, 8, 2}},
        {id, {"time", &Nucleo::UInt64Type, 8, (~std::size_t{0} >> 3) + 2}},
        {id, {"time", &Nucleo::UInt64Type, 17}},
        {id, {"flags", &Nucleo::UInt32Type, 4}},
        {{"time", &Nucleo::UInt64Type, 8}, id},
    };
    for (const auto& fields : refused) {
        EXPECT_EQ(assembly->AddValue(record, fields), ERROR_PARAMETER) << &fields - refused;
    }
    const TypeField fields[] = {id, {"time", &Nucleo::UInt64Type, 8}};
    EXPECT_EQ(assembly->AddValue(record, fields), OK);

    const Type base{"Base", &Nucleo::Object::StaticType(), 64};
    const Type derived{"Derived", &base, 80};
    const Type stream{"FileStream", &Nucleo::Stream::StaticType(), 64};
    const auto function = [](Nucleo::Object*) { return OK; };
    const TypeOverride overrides[] = {{"VRelease", function}, {"VRelease", function}, {"VEmpty", nullptr}};
    const std::span all(overrides);
    EXPECT_EQ(assembly->AddClass(derived, {}), ERROR_PARAMETER);  // Its base is not known,
    EXPECT_EQ(assembly->AddClass(stream, {}), ERROR_PARAMETER);   // nor this one's.
    EXPECT_EQ(assembly->AddClass({"Loose", nullptr, 64}, {}), ERROR_PARAMETER);
    EXPECT_EQ(assembly->AddClass(base, all.first(2)), ERROR_PARAMETER);
    EXPECT_EQ(assembly->AddClass(base, all.last(1)), ERROR_PARAMETER);
    EXPECT_EQ(assembly->AddClass(base, all.first(1)), OK);
    EXPECT_EQ(assembly->AddClass(derived, {}), OK);
    EXPECT_EQ(assembly->AddClass({"Small", &base, 63}, {}), ERROR_PARAMETER);
    EXPECT_EQ(assembly->AddClass({"Record", &base, 64}, {}), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(assembly->AddDependency(*assembly), ERROR_PARAMETER);
    EXPECT_EQ(assembly->AddDependency(Nucleo::Nucleo_Assembly()), OK);
    EXPECT_EQ(assembly->AddDependency(Nucleo::Nucleo_Assembly()), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(assembly->AddClass(stream, {}), OK);

    EXPECT_EQ(assembly->Finalize(), OK);
    EXPECT_EQ(assembly->Finalize(), ERROR_STATE);
    EXPECT_EQ(assembly->AddValue({"Late", nullptr, 8}, {}), ERROR_STATE);
    EXPECT_EQ(assembly->AddClass({"Late", &base, 64}, {}), ERROR_STATE);
    EXPECT_EQ(assembly->AddDependency(Nucleo::Nucleo_Assembly()), ERROR_STATE);
    EXPECT_EQ(assembly->Types().size(), 4U);
    EXPECT_EQ(assembly->Find("FileStream")->type, &stream);
    EXPECT_EQ(Nucleo::Nucleo_Assembly().Find("handle")->type, &Nucleo::ObjectHandleType);
}

TEST(AssemblyTest, KeepsItsDependenciesAsLongAsItself)
{
    VxTestSupport::FailingAllocator allocator;
    auto dependency = Make("Library", &allocator);
    auto assembly = Make("App");
    ASSERT_EQ(dependency->Finalize(), OK);
    EXPECT_EQ(assembly->AddDependency(*dependency), OK);
    dependency = {};
    ASSERT_EQ(allocator.Live(), 1);
    EXPECT_EQ(assembly->Dependencies()[0]->Name(), "Library");
    assembly = {};
    EXPECT_EQ(allocator.Live(), 0);
}

}  // namespace
