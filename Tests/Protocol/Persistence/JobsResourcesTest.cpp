// The jobs resources through the router, with request values and no socket.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <VxApi/Exception.h>
#include <VxCommon/Protocol/Persistence/PersistDir.h>
#include <VxRest/ResourceRouter.h>
#include <VxTestSupport/LogCapture.h>
#include <VxTestSupport/TestSystem.h>

using namespace Nucleo::Statuses;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using VxCommon::PersistManager;
using VxRest::Operation;

namespace
{

// A handler that puts one item into the job store, so that jobs have content.
class OneItemHandler final : public VxCommon::IPersistHandler
{
public:
    std::string DisplayName() const override { return "One item"; }
    void Init(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store) override { Save(domain, store); }
    void Load(VxCommon::PersistDomain /*domain*/, VxCommon::IPersistStore& /*store*/) override {}
    void Save(VxCommon::PersistDomain /*domain*/, VxCommon::IPersistStore& store) override
    {
        store.Write("/item", nullptr, 0);
    }
};

class NoUpdates final : public VxCommon::IUpdatableSystem
{
public:
    void BeginUpdate(bool /*flag*/) override {}
    void EndUpdate() override {}
};

struct Outcome
{
    Nucleo::Status status = OK;
    std::string message;  // As what() says it; empty on success.
    std::string file;     // Of a Vx::Exception.
    std::string function;
    json result;
};

class JobsResourcesTest : public testing::Test
{
protected:
    JobsResourcesTest()
    {
        manager.RegisterHandler(handler, "");
        manager.Init();
        manager.LoadDefaultJob();
        directory.emplace(router, manager);
        notices = router.NotificationEvent().Subscribe([this](VxRest::EventType type, const std::string& path) {
            noticed.push_back(std::to_string(static_cast<int>(type)) + " " + path);
        });
    }

    Outcome Call(Operation operation, const std::string& path, const json& body = nullptr, bool schema = false)
    {
        Outcome outcome;
        embedded.clear();
        try {
            const auto match = router.Find(path);
            const VxRest::RequestInfo request(path, match.Keys(), json::object(), schema);
            VxRest::ResponseInfo response;
            switch (operation) {
                case Operation::Document:
                    outcome.result = match.Document(request, response);
                    break;
                case Operation::UpdateDocument:
                    match.UpdateDocument(request, body);
                    break;
                case Operation::Create: {
                    const VxRest::CreateResult created = match.Create(request, body);
                    outcome.result = {{"id", created.id}, {"path", created.path}};
                    break;
                }
                case Operation::Delete:
                    match.Delete(request);
                    break;
                case Operation::Invoke:
                    outcome.result = match.Invoke(request, body);
                    break;
            }
            for (const auto& entry : response.Embeddings()) {
                EXPECT_TRUE(entry.link && entry.document.is_null());
                embedded.push_back(entry.relation + " " + entry.path);
            }
        } catch (const Vx::Exception& exception) {
            outcome = {exception.Status(), exception.Message(), exception.File(), exception.Function(), nullptr};
        } catch (const std::exception& exception) {
            outcome = {Vx::StatusOf(exception), exception.what(), {}, {}, nullptr};
        }
        return outcome;
    }

    json Get(const std::string& path, bool schema = false)
    {
        return Call(Operation::Document, path, nullptr, schema).result;
    }

    static json Bytes(const std::string& text)
    {
        return json::binary(std::vector<std::uint8_t>(text.begin(), text.end()));
    }

    Outcome CreateJob(const std::string& name, const std::string& content)
    {
        return Call(Operation::Create, "/jobs/files", {{"name", name}, {"content", Bytes(content)}});
    }

    VxTestSupport::TestSystem platform;
    VxCommon::TesselSystem system{Vx::Object<void*>(platform.NewSystemReference()), &platform.Node(),
                                  VxCommon::TesselSystem::ApplicationType::PixoraFirmware, nullptr};
    NoUpdates updates;
    OneItemHandler handler;
    PersistManager manager{system, updates};
    VxRest::ResourceRouter router;
    std::optional<VxCommon::PersistDir> directory;
    std::vector<std::string> noticed;
    std::vector<std::string> embedded;
    Vx::Subscription notices;
};

TEST_F(JobsResourcesTest, TheSummaryTellsTheStateAndLinksEveryJob)
{
    EXPECT_EQ(Get("/jobs"), json({{"defaultJob", ""}, {"loadedJob", ""}, {"loadedJobDirty", false}}));
    EXPECT_TRUE(embedded.empty());

    manager.SaveJob("b job");
    manager.SaveJob("a");
    manager.SetDefaultJob("b job");
    manager.NotifyChange(handler, VxCommon::PersistDomain::JOB);
    EXPECT_EQ(Get("/jobs"), json({{"defaultJob", "b job"}, {"loadedJob", "a"}, {"loadedJobDirty", true}}));
    EXPECT_THAT(embedded, ElementsAre("item /jobs/files/a", "item /jobs/files/b%20job"));

    EXPECT_EQ(Get("/jobs/files"), nullptr);
    EXPECT_THAT(embedded, ElementsAre("item /jobs/files/a", "item /jobs/files/b%20job"));

    const json schema = Get("/jobs", true).at("_schema");
    EXPECT_EQ(schema.at("extendedType"), "");
    EXPECT_EQ(schema.at("properties").at("loadedJobDirty"),
              json({{"type", "boolean"}, {"title", "loadedJobDirty"}, {"sortOrder", 200}, {"readOnly", true}}));
    EXPECT_EQ(schema.at("properties").at("defaultJob").at("sortOrder"), 0);
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
    const std::string file = "Protocol/Persistence/PersistJobsRes";
    const std::string files = "VxCommon::Internal::PersistJobsFilesRes::";
    const std::string data = "VxCommon::Internal::PersistJobsFilesDataRes::";
    const std::string both = "Jobs create resource parameters must contain name and content.";
    struct Case
    {
        Operation operation;
        std::string path;
        json body;
        Nucleo::Status status;
        std::string message;
        std::string function;
    };
    const std::vector<Case> cases = {
        {Operation::Create, "/jobs/files", {{"name", "x"}}, ERROR_PARAMETER, both, files + "Create"},
        {Operation::Create, "/jobs/files", {{"content", ""}}, ERROR_PARAMETER, both, files + "Create"},
        {Operation::Create, "/jobs/files", json::array(), ERROR_PARAMETER, both, files + "Create"},
        {Operation::Create, "/jobs/files", nullptr, ERROR_PARAMETER, both, files + "Create"},
        {Operation::Create,
         "/jobs/files",
         {{"name", ""}, {"content", ""}},
         ERROR_PARAMETER,
         "Jobs create resource parameter name cannot be empty.",
         files + "Create"},
        {Operation::Create,
         "/jobs/files",
         {{"name", "there"}, {"content", "!"}},
         ERROR_ALREADY_EXISTS,
         "Jobs create resource request failed - 'there' already exists",
         files + "Create"},
        {Operation::Document, "/jobs/files/none", nullptr, ERROR_NOT_FOUND, "", files + "ReadOne"},
        {Operation::Document, "/jobs/files/none/data", nullptr, ERROR_NOT_FOUND, "Job file none not found.",
         data + "ReadOne"},
        {Operation::UpdateDocument, "/jobs", json::object(), ERROR_UNSUPPORTED, "",
         "VxCommon::Internal::PersistJobsRes::UpdateDocument"},
        {Operation::UpdateDocument, "/jobs/files/there", json::object(), ERROR_UNSUPPORTED, "",
         files + "UpdateDocument"},
        {Operation::UpdateDocument, "/jobs/files/there/data", json::array({"content"}), ERROR_PARAMETER, "",
         data + "UpdateDocument"},
        {Operation::UpdateDocument, "/jobs/files/there/data", json::object(), ERROR_PARAMETER, "",
         data + "UpdateDocument"},
    };
    for (const Case& c : cases) {
        const Outcome outcome = Call(c.operation, c.path, c.body);
        SCOPED_TRACE(c.path + " " + c.body.dump());
        EXPECT_EQ(outcome.status, c.status);
        EXPECT_EQ(outcome.message, c.message);
        EXPECT_EQ(outcome.file, file);
        EXPECT_EQ(outcome.function, c.function);
    }
    const Outcome number = Call(Operation::Create, "/jobs/files", {{"name", 1}, {"content", ""}});
    EXPECT_THAT(number.message, HasSubstr("type must be string, but is number"));
    const Outcome base64 = Call(Operation::Create, "/jobs/files", {{"name", "new"}, {"content", "ab!d"}});
    EXPECT_EQ(base64.status, ERROR_PARAMETER);
    EXPECT_THAT(base64.message, HasSubstr("3"));
    EXPECT_TRUE(noticed.empty());
    EXPECT_THAT(manager.ListJobs(), ElementsAre("there"));

    // Without path keys, as only a direct caller can ask.
    VxCommon::Internal::PersistJobsFilesDataRes resource(router, manager);
    VxCommon::Internal::PersistJobsFilesRes collection(router, manager);
    VxRest::ResponseInfo response;
    const VxRest::RequestInfo none;
    EXPECT_THROW(resource.Document(none, response), Vx::Exception);
    EXPECT_THROW(resource.UpdateDocument(none, {{"content", ""}}), Vx::Exception);
    try {
        collection.Delete(none);
        FAIL() << "deleted nothing";
    } catch (const Vx::Exception& exception) {
        EXPECT_EQ(exception.Message(), "Jobs resource request info keys do not include id.");
    }
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
    const std::string noDest = "Jobs copy command resource args do not contain destName.";
    const std::string noSource = "Jobs copy command resource args do not contain sourceName.";
    struct Case
    {
        std::string command;
        json args;
        std::string message;  // Exact for the resource's own, a part for those of the JSON library.
        bool own = true;
    };
    const std::vector<Case> cases = {
        {"load", nullptr, "Jobs load command resource args empty."},
        {"load", json::object(), "Jobs load command resource args empty."},
        {"load", json::array(), "Jobs load command resource args empty."},
        {"load", {{"fromFactory", 1}}, "type must be boolean, but is number", false},
        {"load", {{"name", true}}, "type must be string, but is boolean", false},
        {"save", json::object(), "Jobs save command resource args empty."},
        {"save", 5, "cannot use value() with number", false},
        {"save", {{"name", nullptr}}, "type must be string, but is null", false},
        {"setDefault", nullptr, "Jobs set default command resource args empty."},
        {"copy", {{"sourceName", "a"}}, noDest},
        {"copy", {{"destName", "a"}}, noSource},
        {"copy", nullptr, noDest},
        {"copy", json::array({1}), noDest},
        {"rename", {{"destName", "a"}}, noSource},
        {"rename", json::object(), noDest},
        {"copy", {{"sourceName", 1}, {"destName", "a"}}, "type must be string, but is number", false},
    };
    for (const Case& c : cases) {
        const Outcome outcome = Call(Operation::Invoke, "/jobs/commands/" + c.command, c.args);
        SCOPED_TRACE(c.command + " " + c.args.dump());
        EXPECT_EQ(outcome.status, ERROR_PARAMETER);
        if (c.own) {
            EXPECT_EQ(outcome.message, c.message);
            EXPECT_EQ(outcome.file, "Protocol/Persistence/PersistJobsActionsRes");
            EXPECT_THAT(outcome.function, testing::MatchesRegex("VxCommon::Internal::PersistJobs.*CommandRes::Invoke"));
        } else {
            EXPECT_THAT(outcome.message, HasSubstr(c.message));
        }
    }
    // The manager decides what an empty name means.
    EXPECT_EQ(Call(Operation::Invoke, "/jobs/commands/save", {{"name", ""}}).file, "Persistence/PersistManager");
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
