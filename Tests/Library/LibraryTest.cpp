// The shared library as others see it: loaded alone, found by the plug-in loader, exporting what is documented.

#include <dlfcn.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Nucleo/Assembly.h>

using namespace Nucleo::Statuses;
using testing::ElementsAre;

namespace
{

struct Close
{
    void operator()(void* library) const { dlclose(library); }
};
using Library = std::unique_ptr<void, Close>;

template <class Function>
Function* Find(const Library& library, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(library.get(), name));
}

TEST(LibraryTest, ThePluginLoaderFindsItsAssembly)
{
    const Library library(dlopen(VX_LIBRARY, RTLD_NOW | RTLD_LOCAL));
    ASSERT_TRUE(library) << dlerror();
    auto* construct = Find<Nucleo::Status(Nucleo::Assembly**)>(library, "PluginConstructAssembly");
    auto* again = Find<Nucleo::Status(Nucleo::Assembly**)>(library, "VcLib_Construct");
    auto* assemblyVersion = Find<const char*()>(library, "PluginAssemblyVersion");
    auto* platformVersion = Find<const char*()>(library, "PluginPlatformVersion");
    ASSERT_TRUE(construct && again && assemblyVersion && platformVersion);
    EXPECT_STREQ(assemblyVersion(), "1.0.0.0");
    Nucleo::Version version{};
    EXPECT_EQ(Nucleo::Version_Parse(platformVersion(), &version), OK);

    Nucleo::Assembly* assembly = nullptr;
    ASSERT_EQ(construct(&assembly), OK);
    const std::int32_t references = assembly->References();
    Nucleo::Assembly* same = nullptr;
    ASSERT_EQ(again(&same), OK);
    EXPECT_EQ(same, assembly);
    EXPECT_EQ(assembly->References(), references + 1);
    EXPECT_EQ(Nucleo::Destroy(same), OK);

    EXPECT_EQ(assembly->Name(), "VcLib");
    EXPECT_EQ(assembly->AssemblyVersion(), (Nucleo::Version{{1, 0, 0, 0}}));
    std::vector<std::string> dependencies;
    for (const Nucleo::Assembly* dependency : assembly->Dependencies()) {
        dependencies.push_back(dependency->Name());
    }
    EXPECT_THAT(dependencies, ElementsAre("Nucleo", "TesselLib"));
    std::vector<std::string> types;
    for (const Nucleo::TypeEntry& entry : assembly->Types()) {
        types.push_back(std::string(entry.type->name) + " " + std::to_string(entry.fields.size()) + " " +
                        std::to_string(entry.overrides.size()) +
                        (entry.isClass ? "" : " of " + std::to_string(entry.type->size)));
        EXPECT_TRUE(!entry.isClass || entry.overrides.at(0).name == std::string("VRelease"));
    }
    EXPECT_THAT(
        types,
        ElementsAre("VcLogger 0 1", "VcLog 0 1", "VcLogMsg 0 1", "VcHealthId 2 0 of 8", "VcHealthIndicator 4 0 of 80",
                    "VcIndicatorFilter 6 0 of 24", "VcIndicatorMapItem 2 0 of 16", "VcIndicatorSet 0 1",
                    "VcIndicatorListItem 2 0 of 16", "VcIndicatorCache 0 1", "VcIndicatorSetOverwrite 4 0 of 24"));
    EXPECT_EQ(assembly->Finalize(), ERROR_STATE);
    EXPECT_EQ(Nucleo::Destroy(assembly), OK);
}

// The lines of docs/exports.md that begin with "- `".
std::set<std::string> Documented()
{
    std::set<std::string> names;
    std::ifstream page(VX_EXPORTS_PAGE);
    const std::regex item("^- `([^`]+)`.*");
    std::smatch match;
    for (std::string line; std::getline(page, line);) {
        if (std::regex_match(line, match, item)) {
            names.insert(match[1]);
        }
    }
    return names;
}

// C functions by their names, C++ symbols by the class that they belong to.
std::set<std::string> Exported()
{
    std::set<std::string> names;
    const std::unique_ptr<FILE, int (*)(FILE*)> output(popen("nm -DC --defined-only '" VX_LIBRARY "'", "r"), &pclose);
    const std::regex symbol(
        "^[0-9a-f]+ [A-Za-z] (?:(?:vtable|typeinfo|typeinfo name) for |non-virtual thunk to )?(.*)\n");
    const std::regex member("^(?:VxCommon::[A-Za-z0-9_]+|Vc[A-Za-z0-9_]+)(?=::|\\(|\\[|$)");
    std::smatch match;
    for (char line[4096]; std::fgets(line, sizeof line, output.get()) != nullptr;) {
        const std::string text(line);
        if (!std::regex_match(text, match, symbol)) {
            ADD_FAILURE() << text;
            continue;
        }
        const std::string name = match[1];
        std::smatch owner;
        names.insert(std::regex_search(name, owner, member) ? owner[0].str() : name);
    }
    return names;
}

TEST(LibraryTest, ExportsWhatIsDocumentedAndNothingElse)
{
    const std::set<std::string> documented = Documented();
    const std::set<std::string> exported = Exported();
    EXPECT_GT(exported.size(), 100U);
    for (const std::string& name : exported) {
        EXPECT_TRUE(documented.contains(name)) << name << " is exported, but not documented";
    }
    for (const std::string& name : documented) {
        EXPECT_TRUE(exported.contains(name)) << name << " is documented, but not exported";
    }
}

}  // namespace
