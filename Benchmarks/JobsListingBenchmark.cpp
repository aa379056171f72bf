// What does GET /jobs cost with many jobs stored? In process, from the router to the finished document, on a real
// folder; beside the bare walk over the same folder that sorts the names and makes one JSON link a file.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>

#include <benchmark/benchmark.h>

#include <TesselLib/DirectoryStorage.h>
#include <TesselLib/VirtualSystem.h>
#include <VxCommon/Protocol/Persistence/PersistDir.h>
#include <VxRest/ResourceRouter.h>
#include <VxTestSupport/TemporaryFolder.h>

namespace
{

class NoUpdates final : public VxCommon::IUpdatableSystem
{
public:
    void BeginUpdate(bool /*flag*/) override {}
    void EndUpdate() override {}
};

// A manager with `count` stored jobs, served by a router.
struct Stored
{
    explicit Stored(std::int64_t count)
    {
        std::unique_ptr<TesselLib::DirectoryStorage> storage;
        if (TesselLib::DirectoryStorage::Open(folder.Path(), &storage) != Nucleo::OK) {
            throw std::runtime_error("no storage");
        }
        for (std::int64_t i = 0; i < count; ++i) {
            // Past the storage, whose uploads reach the disk one by one.
            std::ofstream(folder.Path() / "user" / ("job " + std::to_string(i) + ".vpjob")) << "x";
        }
        std::vector<TesselLib::VirtualNodeDescription> nodes(1);
        nodes[0].storage = std::move(storage);
        TesselLib::System* platform = nullptr;
        TesselLib::Node* node = nullptr;
        if (TesselLib::VirtualSystem_Construct(&platform, std::move(nodes)) != Nucleo::OK ||
            platform->FindNode(0, &node) != Nucleo::OK) {
            throw std::runtime_error("no system");
        }
        system.emplace(Vx::Object<void*>(static_cast<Nucleo::Object*>(platform)), node,
                       VxCommon::TesselSystem::ApplicationType::PixoraFirmware, nullptr);
        manager.emplace(*system, updates);
        manager->Init();
        directory.emplace(router, *manager);
    }

    VxTestSupport::TemporaryFolder folder;
    NoUpdates updates;
    std::optional<VxCommon::TesselSystem> system;
    std::optional<VxCommon::PersistManager> manager;
    VxRest::ResourceRouter router;
    std::optional<VxCommon::PersistDir> directory;
};

void Ours(benchmark::State& state)
{
    Stored stored(state.range(0));
    for (auto _ : state) {
        const auto match = stored.router.Find("/jobs");
        const VxRest::RequestInfo request("/jobs", match.Keys());
        VxRest::ResponseInfo response;
        benchmark::DoNotOptimize(match.Document(request, response));
        if (static_cast<std::int64_t>(response.Embeddings().size()) != state.range(0)) {
            state.SkipWithError("not all jobs were listed");
        }
    }
}
BENCHMARK(Ours)->Name("JobsListing/ours")->Arg(10)->Arg(1000);

void Readdir(benchmark::State& state)
{
    Stored stored(state.range(0));
    for (auto _ : state) {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(stored.folder.Path() / "user")) {
            if (entry.is_regular_file() && entry.path().extension() == ".vpjob") {
                names.push_back(entry.path().stem());
            }
        }
        std::sort(names.begin(), names.end());
        nlohmann::json links = nlohmann::json::array();
        for (const std::string& name : names) {
            links.push_back({{"href", "/jobs/files/" + name}});
        }
        benchmark::DoNotOptimize(links);
    }
}
BENCHMARK(Readdir)->Name("JobsListing/readdir")->Arg(10)->Arg(1000);

}  // namespace
