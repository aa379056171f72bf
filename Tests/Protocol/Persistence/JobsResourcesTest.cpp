// The jobs resources. The requests of one table are made twice: of the resources by way of the router, without a
// socket, and of a real server.

#include <regex>
#include <sstream>

#include <Tests/Persistence/StorageFixture.h>
#include <VxApi/Base64.h>
#include <VxCommon/Protocol/Persistence/PersistDir.h>
#include <VxRest/HttpServer.h>
#include <VxRest/Path.h>
#include <VxTestSupport/HttpClient.h>
#include <VxTestSupport/RouterProbe.h>

using namespace Nucleo::Statuses;
using nlohmann::json;
using testing::ElementsAre;
using testing::StartsWith;
using VxCommon::PersistManager;
using VxTestSupport::HttpClient;
using VxTestSupport::HttpReply;
using namespace std::string_literals;
using VxRest::Operation;

namespace
{

/// Requests and what comes of them, one after the other on one system: "<method> <path> [body] -> <status> <outcome>".
/// The outcome is the document with the jobs that it links to, or "<code> <detail>" of a refusal, of which the
/// beginning is enough; behind "@" stands the function that refuses. Behind "!" stands what is
/// noticed; nothing else is.
constexpr const char* table = R"(
GET /jobs -> 200 {"defaultJob":"","loadedJob":"","loadedJobDirty":false}
PUT /jobs {"loadedJob":"a"} -> 405 -983 this path does not take the request's method
GET /jobs/files -> 200 {}
GET /jobs/commands/load -> 405 -983 this path does not take the request's method
GET /jobs/files/a -> 404 -999 there is nothing of that name @JobsFilesRes::ReadOne
GET /jobs/files/a/data -> 404 -999 Job file a not found. @JobsFilesDataRes::ReadOne
GET /jobs/files/a%00b/data -> 404 -999 Job file a\x00b not found.
POST /jobs/files {"name":"a"} -> 400 -997 Jobs create resource parameters must contain name and content.
POST /jobs/files {"content":""} -> 400 -997 Jobs create resource parameters must contain name and content.
POST /jobs/files [] -> 400 -997 Jobs create resource parameters must contain name and content. @JobsFilesRes::Create
POST /jobs/files {"name":"","content":""} -> 400 -997 Jobs create resource parameter name cannot be empty.
POST /jobs/files {"name":1,"content":""} -> 400 -997 [json.exception.type_error.302] type must be string, but is number
POST /jobs/files {"name":"a/b","content":""} -> 400 -994 File 'a/b.vpjob' cannot be written: not a valid file name
POST /jobs/files {"name":"a","content":"ab!d"} -> 400 -997 Character 3 of the Base64 text is not valid.
POST /jobs/files {"name":"a %","content":"AAEC"} -> 201 {"id":"a %","path":"/jobs/files/a%20%25"} ! 1 /jobs/files/a%20%25
POST /jobs/files {"name":"a %","content":"!"} -> 409 -987 Jobs create resource request failed - 'a %' already exists
POST /jobs/files/x {"content":""} -> 405 -983
PUT /jobs/files/a%20%25 {"size":1} -> 405 -983
DELETE /jobs/files -> 405 -983
GET /jobs/files/a%20%25 -> 200 {"jobName":"a %","size":3}
GET /jobs/files/a%20%25/data -> 200 {"content":"AAEC"}
PUT /jobs/files/a%20%25/data {"content":"/w=="} -> 204 ! 2 /jobs/files/a%20%25
PUT /jobs/files/a%20%25/data ["content"] -> 400 -997 @JobsFilesDataRes::UpdateDocument
PUT /jobs/files/a%20%25/data {} -> 400 -997 @JobsFilesDataRes::UpdateDocument
GET /jobs/files/a%20%25/data -> 200 {"content":"/w=="}
DELETE /jobs/files/a%20%25 -> 204 ! 3 /jobs/files/a%20%25
DELETE /jobs/files/a%20%25 -> 404 -999
POST /jobs/commands/save -> 400 -997 Jobs save command resource args empty. @JobsSaveCommandRes::Invoke
POST /jobs/commands/save 5 -> 400 -997 [json.exception.type_error.306] cannot use value() with number
POST /jobs/commands/save {"name":null} -> 400 -997 [json.exception.type_error.302] type must be string, but is null
POST /jobs/commands/save {"name":""} -> 400 -997 The job name is empty.
POST /jobs/commands/save {"name":"a"} -> 204 ! 1 /jobs/files/a, 2 /jobs
POST /jobs/commands/copy -> 400 -997 Jobs copy command resource args do not contain destName. @JobsCopyCommandRes::Invoke
POST /jobs/commands/copy {"sourceName":"a"} -> 400 -997 Jobs copy command resource args do not contain destName.
POST /jobs/commands/copy {"destName":"a"} -> 400 -997 Jobs copy command resource args do not contain sourceName.
POST /jobs/commands/copy {"sourceName":1,"destName":"a"} -> 400 -997 [json.exception.type_error.302] type must be string
POST /jobs/commands/copy {"sourceName":"a","destName":"b"} -> 204 ! 1 /jobs/files/b
POST /jobs/commands/rename {} -> 400 -997 Jobs copy command resource args do not contain destName. @JobsRenameCommandRes::Invoke
POST /jobs/commands/rename {"destName":"a"} -> 400 -997 Jobs copy command resource args do not contain sourceName.
POST /jobs/commands/rename {"sourceName":"b","destName":"c"} -> 204 ! 1 /jobs/files/c, 3 /jobs/files/b
POST /jobs/commands/setDefault -> 400 -997 Jobs set default command resource args empty. @JobsSetDefaultCommandRes::Invoke
POST /jobs/commands/setDefault {"name":"c"} -> 204 ! 2 /jobs
GET /jobs -> 200 {"defaultJob":"c","loadedJob":"a","loadedJobDirty":false} /jobs/files/a /jobs/files/c
GET /jobs/files -> 200 {} /jobs/files/a /jobs/files/c
POST /jobs/commands/load -> 400 -997 Jobs load command resource args empty. @JobsLoadCommandRes::Invoke
POST /jobs/commands/load {} -> 400 -997 Jobs load command resource args empty.
POST /jobs/commands/load [] -> 400 -997 Jobs load command resource args empty.
POST /jobs/commands/load {"fromFactory":1} -> 400 -997 [json.exception.type_error.302] type must be boolean, but is number
POST /jobs/commands/load {"name":true} -> 400 -997 [json.exception.type_error.302] type must be string, but is boolean
POST /jobs/commands/load {"other":1} -> 204
POST /jobs/commands/load [1] -> 204
POST /jobs/commands/load "text" -> 204
POST /jobs/commands/load {"fromFactory":false,"name":"c"} -> 204 ! 2 /jobs
GET /jobs -> 200 {"defaultJob":"c","loadedJob":"c","loadedJobDirty":false} /jobs/files/a /jobs/files/c
POST /jobs/commands/load {"fromFactory":true,"name":"a"} -> 204 ! 2 /jobs
POST /jobs/commands/setDefault {"name":""} -> 204 ! 2 /jobs
GET /jobs -> 200 {"defaultJob":"","loadedJob":"","loadedJobDirty":false} /jobs/files/a /jobs/files/c
POST /jobs/commands/load {"name":"a"} -> 204 ! 2 /jobs
PUT /jobs/files/bad/data {"content":"AAAA"} -> 204 ! 2 /jobs/files/bad
POST /jobs/commands/load {"name":"bad"} -> 422 -984 Failed to load job 'bad'. (-984) ! 2 /jobs
GET /jobs -> 200 {"defaultJob":"","loadedJob":"a","loadedJobDirty":false} /jobs/files/a /jobs/files/bad /jobs/files/c
PUT /jobs/files/a/data {"content":""} -> 204 ! 2 /jobs/files/a, 2 /jobs
GET /jobs -> 200 {"defaultJob":"","loadedJob":"","loadedJobDirty":true} /jobs/files/a /jobs/files/bad /jobs/files/c
DELETE /jobs/files/c -> 204 ! 3 /jobs/files/c
DELETE /jobs/files/* -> 204 ! 2 /jobs/files
GET /jobs/files -> 200 {}
PUT /jobs/files/a/data {"content":""} -> 204 ! 2 /jobs/files/a
DELETE /jobs/files/%2A -> 204 ! 2 /jobs/files
GET /jobs/files -> 200 {}
)";

struct Row
{
    std::string method, path, body;
    int status = 0;
    std::string outcome, place, notices;
};

std::vector<Row> Rows()
{
    const std::regex form(R"((\w+) (\S+) ?(.*?) -> (\d+)(?: ([^@!].*?))?(?: @(.*?))?(?: ! (.*))?)");
    std::vector<Row> rows;
    std::istringstream lines(table);
    std::smatch parts;
    for (std::string line; std::getline(lines, line);) {
        if (std::regex_match(line, parts, form)) {
            rows.push_back({parts[1], parts[2], parts[3], std::stoi(parts[4]), parts[5], parts[6], parts[7]});
        }
    }
    return rows;
}

/// A document without its link to itself, and behind it the jobs that it links to.
std::string Shown(json document)
{
    std::string jobs;
    for (const json& job : document.value("/_links/item"_json_pointer, json::array())) {
        jobs += " " + job.at("href").get<std::string>();
    }
    document.erase("_links");
    return document.dump() + jobs;
}

class JobsResourcesTest : public VxCommon::StorageFixture, public VxTestSupport::RouterProbe
{
protected:
    JobsResourcesTest()
    {
        manager.RegisterHandler(handler, "");
        manager.Init();
        manager.LoadDefaultJob();
        directory.emplace(router, manager);
    }

    /// The outcome of a request of the resources.
    std::string Call(const Row& row)
    {
        const json body = row.body.empty() ? json() : json::parse(row.body);
        const auto match = router.Find(row.path);
        const VxRest::RequestInfo request(row.path, match.Keys());
        if (row.method == "GET") {
            VxRest::ResponseInfo response;
            json document = match.Document(request, response);
            if (document.contains("content")) {
                document["content"] = Vx::Base64Encode(document["content"].get_binary());
            }
            document.update(json::object());  // Null becomes an object.
            for (const auto& job : response.Embeddings()) {
                EXPECT_TRUE(job.link && job.document.is_null());
                document["_links"][job.relation].push_back({{"href", job.path}});
            }
            return Shown(document);
        }
        if (row.method == "POST" && match.Allows(Operation::Create)) {
            const VxRest::CreateResult created = match.Create(request, body);
            return Shown({{"id", created.id}, {"path", created.path}});
        }
        if (row.method == "POST") {
            EXPECT_EQ(match.Invoke(request, body), nullptr);
        } else {
            row.method == "PUT" ? match.UpdateDocument(request, body) : match.Delete(request);
        }
        return {};
    }

    HttpClient Connect()
    {
        VxRest::HttpServerOptions options;
        options.port = 0;
        return HttpClient(server.emplace(router, options).Port());
    }

    /// "<code> <detail>" of the problem that a refusal at `path` is.
    static std::string Refusal(const HttpReply& reply, const std::string& path)
    {
        EXPECT_TRUE(reply.status >= 400 && reply.status < 500) << reply.status;
        EXPECT_EQ(reply.Header("Content-Type"), "application/problem+json");
        const json problem = reply.Json();
        EXPECT_EQ(problem.at("status"), reply.status);
        EXPECT_EQ(problem.at("instance"), path);
        EXPECT_GT(problem.at("detail").get<std::string>().size(), 8U);
        return problem.at("code").dump() + " " + problem.at("detail").get<std::string>();
    }

    std::string TakeNotices()
    {
        std::string all;
        for (const std::string& notice : std::exchange(noticed, {})) {
            all += (all.empty() ? "" : ", ") + notice;
        }
        return all;
    }

    VxCommon::Journal journal;
    VxCommon::FakeUpdatable updates{journal};
    VxCommon::FakeHandler handler{"One item", journal};
    PersistManager manager{system_, updates};
    std::optional<VxCommon::PersistDir> directory;
    std::optional<VxRest::HttpServer> server;
};

TEST_F(JobsResourcesTest, RequestsOfTheResourcesComeOutAsTheTableSays)
{
    for (const Row& row : Rows()) {
        SCOPED_TRACE(row.method + " " + row.path + " " + row.body);
        try {
            EXPECT_EQ(Call(row), row.outcome);
        } catch (const Vx::Exception& exception) {
            EXPECT_THAT(std::to_string(exception.Status()) + " " + exception.what(), StartsWith(row.outcome));
            EXPECT_TRUE(row.place.empty() || exception.Function() == "VxCommon::Internal::Persist" + row.place);
            EXPECT_THAT(exception.File(), testing::AnyOf(testing::Not(StartsWith("Protocol/")),
                                                         testing::Eq(row.path.starts_with("/jobs/commands")
                                                                         ? "Protocol/Persistence/PersistJobsActionsRes"
                                                                         : "Protocol/Persistence/PersistJobsRes")));
        } catch (const json::exception& exception) {
            EXPECT_THAT(std::string("-997 ") + exception.what(), StartsWith(row.outcome));
        }
        EXPECT_EQ(TakeNotices(), row.notices);
    }
}

TEST_F(JobsResourcesTest, RequestsOfAServerComeOutAsTheTableSays)
{
    HttpClient client = Connect();  // One connection for all: no answer may spoil it.
    for (const Row& row : Rows()) {
        SCOPED_TRACE(row.method + " " + row.path + " " + row.body);
        const HttpReply reply = client.Request(row.method, row.path, row.body);
        EXPECT_EQ(reply.status, row.status);
        EXPECT_EQ(reply.status == 405, reply.Header("Allow").starts_with("OPTIONS"));
        if (row.status < 400) {
            EXPECT_EQ(reply.body.empty() ? "" : Shown(reply.Json()), row.outcome);
            EXPECT_TRUE(reply.status != 201 || reply.Json().at("path") == reply.Header("Location"));
        } else {
            EXPECT_THAT(Refusal(reply, row.path), StartsWith(row.outcome));
        }
        EXPECT_EQ(TakeNotices(), row.notices);
    }
    // Names beside a body of plain bytes are taken as they are written.
    const VxTestSupport::HttpHeaders bytes = {{"Content-Type", "application/octet-stream"}};
    for (const std::string name : {"7", "007", "1e3", "-0.0", "true", "null"}) {
        const HttpReply reply = client.Request("POST", "/jobs/files?name=" + name, "x", bytes);
        EXPECT_EQ(reply.Json(), json({{"id", name}, {"path", "/jobs/files/" + name}}));
    }
    for (const char* command : {"copy?sourceName=1e3&destName=1000", "setDefault?name=1000"}) {
        EXPECT_EQ(client.Request("POST", std::string("/jobs/commands/") + command, "x", bytes).status, 204) << command;
    }
}

TEST_F(JobsResourcesTest, NamesThatWouldEscapeOrAliasAreRefusedEverywhere)
{
    manager.SaveJob("keep");
    const std::string kept = Text("keep.vpjob");
    const auto files = files_.Names();
    HttpClient client = Connect();
    for (const std::string& name :
         {"a/b"s, "../keep"s, "/etc/passwd"s, "."s, ".."s, "keep\0x"s, "\0"s, "keep.vpjob\0"s, "\xff\xfe"s,
          "keep\xc0\xaf"s, "*"s, "a:b"s, "what?"s, "<a|b>"s, std::string(145, 'n'), std::string(10'000, 'n')}) {
        SCOPED_TRACE(VxRest::Path::Encode(name).substr(0, 40));
        const std::pair<const char*, json> posts[] = {
            {"/jobs/files", {{"name", name}, {"content", ""}}},
            {"/jobs/commands/save", {{"name", name}}},
            {"/jobs/commands/load", {{"name", name}}},
            {"/jobs/commands/setDefault", {{"name", name}}},
            {"/jobs/commands/copy", {{"sourceName", "keep"}, {"destName", name}}},
            {"/jobs/commands/rename", {{"sourceName", name}, {"destName", "gone"}}},
        };
        for (const auto& [path, document] : posts) {
            std::string cbor;
            json::to_cbor(document, cbor);
            Refusal(client.Request("POST", path, cbor, {{"Content-Type", "application/cbor"}}), path);
        }
        const std::string member = "/jobs/files/" + VxRest::Path::Encode(name);
        if (member.size() > 1000) {  // More than a header takes.
            continue;
        }
        Refusal(client.Request("PUT", member + "/data", R"({"content":""})"), member + "/data");
        Refusal(client.Get(member + "/data"), member + "/data");
        if (name != "*") {  // Which is how all jobs are deleted.
            Refusal(client.Request("DELETE", member), member);
        }
    }
    EXPECT_EQ(files_.Names(), files);
    EXPECT_EQ(Text("keep.vpjob"), kept);
}

TEST_F(JobsResourcesTest, TheSummaryHasASchemaAndFollowsChanges)
{
    const json schema = Get("/jobs", json::object(), true).at("_schema");
    EXPECT_EQ(schema.at("properties").at("loadedJobDirty").at("readOnly"), true);
    manager.NotifyChange(handler, VxCommon::PersistDomain::JOB);
    EXPECT_EQ(Get("/jobs").at("loadedJobDirty"), true);
}

TEST_F(JobsResourcesTest, WhatOnlyADirectCallerCanAskIsRefused)
{
    VxCommon::Internal::PersistJobsRes summary(router, manager);
    VxCommon::Internal::PersistJobsFilesRes files(router, manager);
    VxCommon::Internal::PersistJobsFilesDataRes data(router, manager);
    VxRest::ResponseInfo response;
    const VxRest::RequestInfo none;
    const std::pair<std::function<void()>, std::string> calls[] = {
        {[&] { summary.UpdateDocument(none, {}); }, "-983 JobsRes::UpdateDocument"},
        {[&] { files.UpdateDocument(none, {}); }, "-983 JobsFilesRes::UpdateDocument"},
        {[&] { files.Delete(none); }, "-997 JobsFilesRes::Delete"},
        {[&] { data.Document(none, response); }, "-997 JobsFilesDataRes::Document"},
        {[&] {
             data.UpdateDocument(none, {{"content", ""}});
         },
         "-997 JobsFilesDataRes::UpdateDocument"},
    };
    for (const auto& [call, refusal] : calls) {
        EXPECT_EQ(VxTestSupport::PlaceThrown(call),
                  std::string(refusal).insert(5, "Protocol/Persistence/PersistJobsRes VxCommon::Internal::Persist"));
    }
    EXPECT_EQ(VxTestSupport::MessageThrown(calls[2].first), "-997 Jobs resource request info keys do not include id.");
    // A look that fails is no "already exists".
    files_.FailNext(VxTestSupport::FileOp::Exists, "n.vpjob", 1, Nucleo::ERROR_IO);
    files_.FailNext(VxTestSupport::FileOp::Size, "n.vpjob", 1, Nucleo::ERROR_IO);
    EXPECT_THAT(VxTestSupport::MessageThrown([&] {
                    files.Create(none, {{"name", "n"}, {"content", ""}});
                }),
                StartsWith("-993 "));
}

TEST_F(JobsResourcesTest, AnUnknownJobChangeIsLoggedAndAListenerThatThrowsDoesNoHarm)
{
    VxTestSupport::ScopedLogCapture log;
    VxCommon::Internal::PersistJobsRes resource(router, manager);
    std::vector<std::string> raised;
    const auto subscription =
        resource.NotificationEvent().Subscribe([&](VxRest::EventType type, const std::string& path) {
            raised.push_back(std::to_string(static_cast<int>(type)) + " " + path);
        });
    resource.StorageChangedEventHandler(static_cast<PersistManager::JobChange>(9), "n");
    EXPECT_TRUE(raised.empty());
    EXPECT_EQ(log.Count("Unhandled changeParams type: 9."), 1);
    EXPECT_EQ(log.Count("Received job system notification 9: n"), 1);

    // A copy follows the manager by itself, and a throwing subscriber must not undo what the manager does.
    auto copy = std::make_unique<VxCommon::Internal::PersistJobsRes>(resource);
    const auto copied = copy->NotificationEvent().Subscribe(
        [](VxRest::EventType, const std::string&) { throw std::runtime_error("listener"); });
    manager.SaveJob("a");
    manager.LoadJob("a");
    EXPECT_EQ(manager.LoadedJob(), "a");
    EXPECT_EQ(raised.size(), 3U);
}

TEST_F(JobsResourcesTest, TheDirectoryRegistersItsPathsAndTakesThemBack)
{
    EXPECT_THAT(router.Patterns(),
                ElementsAre("/jobs", "/jobs/commands/copy", "/jobs/commands/load", "/jobs/commands/rename",
                            "/jobs/commands/save", "/jobs/commands/setDefault", "/jobs/files/:jobFile",
                            "/jobs/files/:jobFile/data"));
    EXPECT_THROW(VxCommon::PersistDir(router, manager), Vx::Exception);
    EXPECT_EQ(router.Patterns().size(), 8U);

    directory.reset();
    EXPECT_TRUE(router.Patterns().empty());
    noticed.clear();
    manager.SaveJob("a");
    EXPECT_TRUE(noticed.empty());

    // What was registered before the path that is taken goes again.
    VxCommon::Internal::PersistJobsSaveCommandRes other(router, manager);
    router.Register("/jobs/commands/save", other);
    EXPECT_THROW(VxCommon::PersistDir(router, manager), Vx::Exception);
    EXPECT_THAT(router.Patterns(), ElementsAre("/jobs/commands/save"));
    router.Deregister("/jobs", true);
}

}  // namespace
