// "/problems" of a running vxhost.

#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <VxTestSupport/TemporaryFolder.h>

#include "HostProcess.h"

namespace VxHostTest
{
namespace
{

using nlohmann::json;

/// Messages and severities of one source: others depend on the machine.
std::vector<std::string> ProblemsOf(const HostProcess& host, const std::string& source)
{
    std::vector<std::string> problems;
    const json document = host.Get("/problems").Json();
    for (const json& item : document.at("items")) {
        if (item.at("source") == source) {
            problems.push_back(item.at("severity").dump() + " " + item.at("msg").get<std::string>());
        }
    }
    return problems;
}

TEST(ProblemsEndToEndTest, WhatIsWrongAtTheStartIsThereFromTheFirstRequest)
{
    const VxTestSupport::TemporaryFolder folder;
    const auto data = folder.Path() / "data";
    std::filesystem::create_directories(data / "user");
    std::ofstream(data / "user" / "Global.tar") << "junk";
    const HostProcess host(data, {"--storage-warning", "0", "--storage-limit", "100"});
    EXPECT_THAT(ProblemsOf(host, "Storage"),
                testing::ElementsAre("0 The storage of the data folder is more than 0 % full."));
    EXPECT_EQ(ProblemsOf(host, "Start").size(), 1U);
    VxTestSupport::EventReader notices(host.Port(), "/notifications?path=/problems");
    std::filesystem::remove(data / "user" / "Global.tar.d01");
    do {  // Other problems of the machine may come and go.
        ASSERT_TRUE(notices.Next());
    } while (!ProblemsOf(host, "Start").empty());
}

}  // namespace
}  // namespace VxHostTest
