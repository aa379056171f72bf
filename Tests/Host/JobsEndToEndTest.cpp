// The job resources and commands of a running vxhost, over a real socket. What each refuses and why is tested by values
// elsewhere; here is what becomes of it on the wire.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <VxRest/Path.h>
#include <VxTestSupport/TemporaryFolder.h>

#include "HostProcess.h"

namespace VxHostTest
{
namespace
{

using nlohmann::json;
using testing::HasSubstr;
using VxTestSupport::HttpReply;
using VxTestSupport::TemporaryFolder;
using namespace std::string_literals;

std::string FileText(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(JobsEndToEndTest, RequestsAreAnsweredAsPromised)
{
    const struct
    {
        const char* method;
        const char* target;
        const char* body;
        int status;
        const char* text;  // A part of the answer's body; for a status from 400 on of the problem's detail.
    } rows[] = {
        // The collection, a member and its data.
        {"GET", "/jobs", "", 200, R"("defaultJob":"","loadedJob":"","loadedJobDirty":false)"},
        {"PUT", "/jobs", "{}", 405, ""},
        {"GET", "/jobs/files/a", "", 404, "there is nothing of that name"},
        {"POST", "/jobs/files", R"({"name":"a"})", 400, "parameters must contain name and content."},
        {"POST", "/jobs/files", R"({"name":"a","content":"AAEC"})", 201, R"({"id":"a","path":"/jobs/files/a"})"},
        {"POST", "/jobs/files", R"({"name":"a","content":""})", 409, "failed - 'a' already exists"},
        {"GET", "/jobs/files/a/data", "", 200, R"("content":"AAEC")"},
        {"PUT", "/jobs/files/a/data", R"({"content":"/w=="})", 204, ""},
        {"GET", "/jobs/files/a", "", 200, R"("size":1)"},
        {"GET", "/jobs", "", 200, R"("item":[{"href":"/jobs/files/a"}])"},
        {"DELETE", "/jobs/files/a", "", 204, ""},
        // Save and load.
        {"POST", "/jobs/commands/save", "[1]", 400, "cannot use value() with array"},
        {"POST", "/jobs/commands/save", R"({"name":"s"})", 204, ""},
        {"GET", "/jobs", "", 200, R"("loadedJob":"s","loadedJobDirty":false)"},
        // A job that cannot be loaded: the one before it comes back.
        {"PUT", "/jobs/files/bad/data", R"({"content":"AAAA"})", 204, ""},
        {"POST", "/jobs/commands/load", R"({"name":"bad"})", 422, "Failed to load job 'bad'. (-9"},
        {"GET", "/jobs", "", 200, R"("loadedJob":"s")"},
        {"POST", "/jobs/commands/copy", R"({"sourceName":"s","destName":"t"})", 204, ""},
        {"POST", "/jobs/commands/rename", R"({"sourceName":"s","destName":"u"})", 204, ""},
        // The loaded job's file is written: it is no longer what is loaded.
        {"PUT", "/jobs/files/u/data", R"({"content":""})", 204, ""},
        {"GET", "/jobs", "", 200, R"("loadedJob":"","loadedJobDirty":true)"},
        {"DELETE", "/jobs/files/*", "", 204, ""},
        {"GET", "/jobs/files", "", 200, R"({"_links":{"self":{"href":"/jobs/files"}}})"},
    };
    const TemporaryFolder folder;
    HostProcess host(folder.Path() / "data");
    VxTestSupport::HttpClient client(host.Port());  // One connection for all: no answer may spoil it.
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.method) + " " + row.target + " " + row.body);
        const HttpReply reply = client.Request(row.method, row.target, row.body);
        ASSERT_EQ(reply.status, row.status) << reply.body;
        if (row.status < 400) {
            EXPECT_THAT(reply.body, HasSubstr(row.text));
        } else {
            EXPECT_EQ(reply.Header("Content-Type"), "application/problem+json");
            EXPECT_EQ(reply.Json().at("status"), row.status);
            EXPECT_THAT(reply.Json().at("detail").get<std::string>(), HasSubstr(row.text));
        }
        EXPECT_TRUE(row.status != 405 || reply.Header("Allow").find("OPTIONS") != std::string::npos);
    }
    const HttpReply created = client.Request("POST", "/jobs/files", R"({"name":"a b%ü","content":""})");
    EXPECT_EQ(created.Header("Location"), "/jobs/files/a%20b%25%C3%BC");
    EXPECT_EQ(client.Get(created.Header("Location")).Json().at("jobName"), "a b%ü");
}

TEST(JobsEndToEndTest, JobsBeyondTheSizeOfTheFolderAreRefused)
{
    const TemporaryFolder folder;
    HostProcess host(folder.Path() / "data", {"--storage-size", "60000"});
    const auto free = [&] { return host.Get("/status").Json().at("freeSpace").get<std::size_t>(); };
    const auto upload = [&](const std::string& name, std::size_t size) {
        return host.Request("POST", "/jobs/files?name=" + name, std::string(size, 'x'),
                            {{"Content-Type", "application/octet-stream"}});
    };
    host.WaitUntilSaved();
    ASSERT_EQ(host.Post("/jobs/commands/save", R"({"name":"s"})").status, 204);
    EXPECT_LT(free(), 60000U);
    const HttpReply refused = upload("large", 60001);
    EXPECT_EQ(refused.status, 507);
    EXPECT_THAT(refused.Json().at("detail").get<std::string>(), HasSubstr("'large.vpjob' cannot be written: no space"));
    // What was kept to be written over is free again once it has been.
    for (int i = 0; i < 3 && free() > 0; ++i) {
        EXPECT_EQ(upload("fill" + std::to_string(i), free()).status, 201);
    }
    EXPECT_EQ(free(), 0U);
    EXPECT_EQ(upload("more", 1).status, 507);
    EXPECT_EQ(host.Post("/jobs/commands/save", R"({"name":"t"})").status, 507);
    EXPECT_EQ(host.Post("/jobs/commands/copy", R"({"sourceName":"s","destName":"t"})").status, 507);
    for (const char* name : {"large", "more", "t"}) {
        EXPECT_FALSE(std::filesystem::exists(folder.Path() / "data/user" / (name + ".vpjob"s)));
    }
    EXPECT_EQ(host.Request("PATCH", "/settings/layout", R"({"zoom":150})").status, 204);
    host.WaitUntilSaved();
    EXPECT_EQ(host.Post("/jobs/commands/setDefault", R"({"name":"s"})").status, 204);
    EXPECT_EQ(host.Request("DELETE", "/jobs/files/fill0").status, 204);
    EXPECT_EQ(host.Post("/jobs/commands/save", R"({"name":"t"})").status, 204);
}

TEST(JobsEndToEndTest, NamesThatWouldEscapeOrAliasAreRefusedEverywhere)
{
    const TemporaryFolder folder;
    const std::filesystem::path data = folder.Path() / "data";
    HostProcess host(data);
    ASSERT_EQ(host.Post("/jobs/commands/save", R"({"name":"keep"})").status, 204);
    const std::string kept = FileText(data / "user/keep.vpjob");

    const struct
    {
        const char* target;
        const char* key;  // Of the name; the others are in `rest`.
        json rest;
    } posts[] = {
        {"/jobs/files", "name", {{"content", ""}}},
        {"/jobs/commands/save", "name", {{"other", 1}}},
        {"/jobs/commands/load", "name", {{"other", 1}}},
        {"/jobs/commands/setDefault", "name", {{"other", 1}}},
        {"/jobs/commands/copy", "destName", {{"sourceName", "keep"}}},
        {"/jobs/commands/rename", "sourceName", {{"destName", "gone"}}},
    };
    const auto expectRefusal = [](const HttpReply& reply, const std::string& what) {
        EXPECT_TRUE(reply.status >= 400 && reply.status < 500) << what << ": " << reply.status << " " << reply.body;
        EXPECT_EQ(reply.Header("Content-Type"), "application/problem+json") << what;
        const json problem = json::parse(reply.body, nullptr, false);
        ASSERT_TRUE(problem.is_object()) << what << ": " << reply.body;
        EXPECT_GT(problem.value("detail", "").size(), 8U) << what << ": " << reply.body;
    };
    for (const std::string& name :
         {"a/b"s, "../keep"s, "/etc/passwd"s, "."s, ".."s, "keep\0x"s, "\0"s, "keep.vpjob\0"s, "\xff\xfe"s,
          "keep\xc0\xaf"s, "*"s, "a:b"s, "what?"s, "<a|b>"s, std::string(145, 'n'), std::string(10'000, 'n')}) {
        const std::string shown = VxRest::Path::Encode(name).substr(0, 40);
        for (const auto& [target, key, rest] : posts) {
            json document = rest;
            document[key] = name;
            const std::vector<std::uint8_t> cbor = json::to_cbor(document);
            expectRefusal(host.Request("POST", target, {reinterpret_cast<const char*>(cbor.data()), cbor.size()},
                                       {{"Content-Type", "application/cbor"}}),
                          target + (" " + shown));
        }
        const std::string member = "/jobs/files/" + VxRest::Path::Encode(name);
        expectRefusal(host.Put(member + "/data", R"({"content":""})"), "PUT data " + shown);
        expectRefusal(host.Get(member + "/data"), "GET data " + shown);
        if (name != "*") {  // Which is how all jobs are deleted.
            expectRefusal(host.Request("DELETE", member), "DELETE " + shown);
        }
    }
    EXPECT_EQ(host.Stop().code, 0);

    EXPECT_EQ(FileText(data / "user/keep.vpjob"), kept);
    std::set<std::string> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.Path())) {
        found.insert(entry.path().lexically_relative(folder.Path()).string());
    }
    EXPECT_EQ(found, (std::set<std::string>{"data", "data/AppInfo.xml", "data/lock", "data/tmp", "data/user",
                                            "data/user/Global.tar", "data/user/PersistRecord.xml",
                                            "data/user/Workspace.vpws", "data/user/keep.vpjob"}));
}

}  // namespace
}  // namespace VxHostTest
