// The jobs resources through the router, with request values and no socket.

#include <Tests/Persistence/StorageFixture.h>
#include <VxCommon/Protocol/Persistence/PersistDir.h>
#include <VxTestSupport/RouterProbe.h>

using namespace Nucleo::Statuses;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using VxCommon::PersistManager;
using VxRest::Operation;

namespace
{

struct Outcome
{
    Nucleo::Status status = OK;
    std::string refusal;  // "<status> <class>::<function>: <message>", or what another exception says.
    json result;
};

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

    Outcome Call(Operation operation, const std::string& path, const json& body = nullptr)
    {
        try {
            const auto match = router.Find(path);
            const VxRest::RequestInfo request(path, match.Keys());
            VxRest::ResponseInfo response;
            switch (operation) {
                case Operation::Document:
                    return {OK, {}, match.Document(request, response)};
                case Operation::UpdateDocument:
                    // Not by way of the match, which refuses what can only be read without asking the resource.
                    match.Resource().DocumentProvider()->UpdateDocument(request, body);
                    return {};
                case Operation::Create: {
                    const VxRest::CreateResult created = match.Create(request, body);
                    return {OK, {}, {{"id", created.id}, {"path", created.path}}};
                }
                case Operation::Delete:
                    match.Delete(request);
                    return {};
                case Operation::Invoke:
                    return {OK, {}, match.Invoke(request, body)};
            }
        } catch (const Vx::Exception& exception) {
            const std::string scope = "VxCommon::Internal::Persist";
            std::string function = exception.Function();
            if (function.starts_with(scope)) {
                function.erase(0, scope.size());
                const bool command = function.find("CommandRes") != function.npos;
                EXPECT_EQ(exception.File(), command ? "Protocol/Persistence/PersistJobsActionsRes"
                                                    : "Protocol/Persistence/PersistJobsRes");
            }
            return {exception.Status(),
                    std::to_string(exception.Status()) + " " + function + ": " + exception.Message(), nullptr};
        } catch (const json::exception& exception) {
            return {ERROR_PARAMETER, exception.what(), nullptr};
        }
        return {};
    }

    std::vector<std::string> Links(const std::string& path)
    {
        const auto match = router.Find(path);
        VxRest::ResponseInfo response;
        match.Document({path, match.Keys()}, response);
        std::vector<std::string> links;
        for (const auto& entry : response.Embeddings()) {
            EXPECT_TRUE(entry.link && entry.document.is_null());
            links.push_back(entry.relation + " " + entry.path);
        }
        return links;
    }

    static json Bytes(const std::string& text)
    {
        return json::binary(std::vector<std::uint8_t>(text.begin(), text.end()));
    }

    Outcome CreateJob(const std::string& name, const std::string& content)
    {
        return Call(Operation::Create, "/jobs/files", {{"name", name}, {"content", Bytes(content)}});
    }

    VxCommon::Journal journal;
    VxCommon::FakeUpdatable updates{journal};
    VxCommon::FakeHandler handler{"One item", journal};
    PersistManager manager{system_, updates};
    std::optional<VxCommon::PersistDir> directory;
};

TEST_F(JobsResourcesTest, TheSummaryTellsTheStateAndLinksEveryJob)
{
    EXPECT_EQ(Get("/jobs"), json({{"defaultJob", ""}, {"loadedJob", ""}, {"loadedJobDirty", false}}));
    EXPECT_TRUE(Links("/jobs").empty());

    manager.SaveJob("b job");
    manager.SaveJob("a");
    manager.SetDefaultJob("b job");
    EXPECT_EQ(Get("/jobs").at("loadedJobDirty"), false);
    manager.NotifyChange(handler, VxCommon::PersistDomain::JOB);
    EXPECT_EQ(Get("/jobs"), json({{"defaultJob", "b job"}, {"loadedJob", "a"}, {"loadedJobDirty", true}}));
    EXPECT_EQ(Get("/jobs/files"), nullptr);
    for (const char* path : {"/jobs", "/jobs/files"}) {
        EXPECT_THAT(Links(path), ElementsAre("item /jobs/files/a", "item /jobs/files/b%20job"));
    }

    const json schema = Get("/jobs", json::object(), true).at("_schema");
    EXPECT_EQ(schema.at("properties").at("loadedJobDirty").at("readOnly"), true);
}

TEST_F(JobsResourcesTest, AJobFileIsCreatedReadWrittenAndDeleted)
{
    EXPECT_EQ(CreateJob("a/b?", "x").status, ERROR_PARAMETER);
    const Outcome created = CreateJob("my job", "one");
    EXPECT_EQ(created.result, json({{"id", "my job"}, {"path", "/jobs/files/my%20job"}}));
    EXPECT_EQ(Get("/jobs/files/my%20job"), json({{"jobName", "my job"}, {"size", 3}}));
    EXPECT_EQ(Get("/jobs/files/my%20job/data"), json({{"content", Bytes("one")}}));

    EXPECT_EQ(Call(Operation::UpdateDocument, "/jobs/files/my%20job/data", {{"content", "dHdv"}}).status, OK);
    EXPECT_EQ(Get("/jobs/files/my%20job/data"), json({{"content", Bytes("two")}}));
    EXPECT_EQ(Call(Operation::Delete, "/jobs/files/my%20job").status, OK);
    EXPECT_EQ(Call(Operation::Document, "/jobs/files/my%20job").status, ERROR_NOT_FOUND);
    EXPECT_THAT(noticed, ElementsAre("1 /jobs/files/my%20job", "2 /jobs/files/my%20job", "3 /jobs/files/my%20job"));

    CreateJob("a", "1");
    CreateJob("b", "2");
    EXPECT_EQ(Call(Operation::Delete, "/jobs/files/*").status, OK);
    EXPECT_TRUE(manager.ListJobs().empty());
    CreateJob("a", "1");
    EXPECT_EQ(Call(Operation::Delete, "/jobs/files/%2A").status, OK);
    EXPECT_TRUE(manager.ListJobs().empty());
}

TEST_F(JobsResourcesTest, RefusalsNameWhatWasWrongAndChangeNothing)
{
    CreateJob("there", "x");
    noticed.clear();
    const std::string create = "JobsFilesRes::Create: Jobs create resource ";
    const std::string both = "-997 " + create + "parameters must contain name and content.";
    const struct
    {
        Operation operation;
        const char* path;
        json body;
        std::string refusal;
    } cases[] = {
        {Operation::Create, "/jobs/files", {{"name", "x"}}, both},
        {Operation::Create, "/jobs/files", {{"content", ""}}, both},
        {Operation::Create, "/jobs/files", json::array(), both},
        {Operation::Create, "/jobs/files", nullptr, both},
        {Operation::Create,
         "/jobs/files",
         {{"name", ""}, {"content", ""}},
         "-997 " + create + "parameter name cannot be empty."},
        {Operation::Create,
         "/jobs/files",
         {{"name", "there"}, {"content", "!"}},
         "-987 " + create + "request failed - 'there' already exists"},
        {Operation::Document, "/jobs/files/none", nullptr, "-999 JobsFilesRes::ReadOne: "},
        {Operation::Document, "/jobs/files/none/data", nullptr,
         "-999 JobsFilesDataRes::ReadOne: Job file none not found."},
        {Operation::UpdateDocument, "/jobs", json::object(), "-983 JobsRes::UpdateDocument: "},
        {Operation::UpdateDocument, "/jobs/files/there", json::object(), "-983 JobsFilesRes::UpdateDocument: "},
        {Operation::UpdateDocument, "/jobs/files/there/data", json::array({"content"}),
         "-997 JobsFilesDataRes::UpdateDocument: "},
        {Operation::UpdateDocument, "/jobs/files/there/data", json::object(),
         "-997 JobsFilesDataRes::UpdateDocument: "},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Call(c.operation, c.path, c.body).refusal, c.refusal) << c.path << c.body;
    }
    const Outcome number = Call(Operation::Create, "/jobs/files", {{"name", 1}, {"content", ""}});
    EXPECT_THAT(number.refusal, HasSubstr("type must be string, but is number"));
    const Outcome base64 = Call(Operation::Create, "/jobs/files", {{"name", "new"}, {"content", "ab!d"}});
    EXPECT_EQ(base64.status, ERROR_PARAMETER);
    EXPECT_THAT(base64.refusal, HasSubstr("3"));
    EXPECT_TRUE(noticed.empty());
    EXPECT_THAT(manager.ListJobs(), ElementsAre("there"));

    // Without path keys, as only a direct caller can ask.
    VxCommon::Internal::PersistJobsFilesDataRes resource(router, manager);
    VxCommon::Internal::PersistJobsFilesRes collection(router, manager);
    VxRest::ResponseInfo response;
    const VxRest::RequestInfo none;
    EXPECT_THROW(resource.Document(none, response), Vx::Exception);
    EXPECT_THROW(resource.UpdateDocument(none, {{"content", ""}}), Vx::Exception);
    EXPECT_EQ(VxTestSupport::MessageThrown([&] { collection.Delete(none); }),
              "-997 Jobs resource request info keys do not include id.");
}

TEST_F(JobsResourcesTest, CommandsActOnTheManager)
{
    const auto invoke = [this](const std::string& command, const json& args) {
        return Call(Operation::Invoke, "/jobs/commands/" + command, args);
    };
    EXPECT_EQ(invoke("save", {{"name", "a"}}).result, nullptr);
    EXPECT_EQ(invoke("copy", {{"sourceName", "a"}, {"destName", "b"}}).status, OK);
    EXPECT_EQ(invoke("rename", {{"sourceName", "b"}, {"destName", "c"}}).status, OK);
    EXPECT_THAT(manager.ListJobs(), ElementsAre("a", "c"));
    EXPECT_EQ(invoke("setDefault", {{"name", "c"}}).status, OK);
    EXPECT_EQ(manager.DefaultJob(), "c");
    EXPECT_EQ(invoke("load", {{"fromFactory", false}, {"name", "c"}}).status, OK);
    EXPECT_EQ(manager.LoadedJob(), "c");
    EXPECT_EQ(invoke("load", {{"fromFactory", true}, {"name", "a"}}).status, OK);
    EXPECT_EQ(manager.LoadedJob(), "");
    EXPECT_EQ(invoke("load", {{"name", "a"}}).status, OK);
    EXPECT_EQ(manager.LoadedJob(), "a");
    noticed.clear();
    EXPECT_EQ(invoke("load", {{"other", 1}}).status, OK);
    EXPECT_EQ(invoke("load", json::array({1})).status, OK);
    EXPECT_EQ(invoke("load", "text").status, OK);
    EXPECT_TRUE(noticed.empty());
    EXPECT_EQ(invoke("setDefault", {{"name", ""}}).status, OK);
    EXPECT_EQ(manager.DefaultJob(), "");
    EXPECT_THAT(noticed, ElementsAre("2 /jobs"));
}

TEST_F(JobsResourcesTest, CommandsRefuseWrongArguments)
{
    const auto empty = [](const std::string& name, const std::string& command) {
        return "-997 Jobs" + name + "CommandRes::Invoke: Jobs " + command + " command resource args empty.";
    };
    const auto lacks = [](const std::string& name, const std::string& command, const std::string& what) {
        return "-997 Jobs" + name + "CommandRes::Invoke: Jobs " + command + " command resource args do not contain " +
               what + ".";
    };
    const struct
    {
        const char* command;
        json args;
        std::string refusal;  // The JSON library's own in part.
    } cases[] = {
        {"load", nullptr, empty("Load", "load")},
        {"load", json::object(), empty("Load", "load")},
        {"load", json::array(), empty("Load", "load")},
        {"load", {{"fromFactory", 1}}, "type must be boolean, but is number"},
        {"load", {{"name", true}}, "type must be string, but is boolean"},
        {"save", json::object(), empty("Save", "save")},
        {"save", 5, "cannot use value() with number"},
        {"save", {{"name", nullptr}}, "type must be string, but is null"},
        {"save", {{"name", ""}}, "VxCommon::PersistManager::SaveJob"},  // The manager decides what that means.
        {"setDefault", nullptr, empty("SetDefault", "set default")},
        {"copy", {{"sourceName", "a"}}, lacks("Copy", "copy", "destName")},
        {"copy", {{"destName", "a"}}, lacks("Copy", "copy", "sourceName")},
        {"copy", nullptr, lacks("Copy", "copy", "destName")},
        {"copy", json::array({1}), lacks("Copy", "copy", "destName")},
        {"rename", {{"destName", "a"}}, lacks("Rename", "copy", "sourceName")},
        {"rename", json::object(), lacks("Rename", "copy", "destName")},
        {"copy", {{"sourceName", 1}, {"destName", "a"}}, "type must be string, but is number"},
    };
    for (const auto& c : cases) {
        const Outcome outcome = Call(Operation::Invoke, std::string("/jobs/commands/") + c.command, c.args);
        EXPECT_EQ(outcome.status, ERROR_PARAMETER) << c.command << c.args;
        EXPECT_THAT(outcome.refusal, HasSubstr(c.refusal)) << c.command << c.args;
    }
}

TEST_F(JobsResourcesTest, EveryKindOfJobChangeHasItsNotice)
{
    VxTestSupport::ScopedLogCapture log;
    VxCommon::Internal::PersistJobsRes resource(router, manager);
    std::vector<std::string> raised;
    const auto subscription =
        resource.NotificationEvent().Subscribe([&](VxRest::EventType type, const std::string& path) {
            raised.push_back(std::to_string(static_cast<int>(type)) + " " + path);
        });
    for (int kind = 0; kind <= 9; ++kind) {
        resource.StorageChangedEventHandler(static_cast<PersistManager::JobChange>(kind), "n");
    }
    EXPECT_THAT(raised, ElementsAre("1 /jobs/files/n", "3 /jobs/files/n", "2 /jobs/files/n", "2 /jobs/files", "2 /jobs",
                                    "2 /jobs", "2 /jobs", "2 /jobs"));
    EXPECT_EQ(log.Count("Unhandled changeParams type: 9."), 1);
    EXPECT_EQ(log.Count("Received job system notification 6: n"), 1);

    // A copy follows the manager by itself, and a throwing subscriber must not undo what the manager does.
    raised.clear();
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
