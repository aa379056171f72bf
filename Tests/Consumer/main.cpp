// The smallest application of an installed VxCommon: a virtual system of one node that keeps its files in the folder
// given, one handler with a counter, and a job that is saved and read back. Ends with 0 when the counter came back.

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <TesselLib/DirectoryStorage.h>
#include <TesselLib/VirtualSystem.h>
#include <VxCommon/Persistence/PersistManager.h>

namespace
{

class Counter final : public VxCommon::IPersistHandler
{
public:
    std::uint8_t value = 0;

    std::string DisplayName() const override { return "Counter"; }
    void Init(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store) override
    {
        value = 0;
        Save(domain, store);
    }
    void Load(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store) override
    {
        if (domain == VxCommon::PersistDomain::JOB) {
            value = store.Read("/counter").at(0);
        }
    }
    void Save(VxCommon::PersistDomain domain, VxCommon::IPersistStore& store) override
    {
        if (domain == VxCommon::PersistDomain::JOB) {
            store.Write("/counter", &value, 1);
        }
    }
};

class NothingToUpdate final : public VxCommon::IUpdatableSystem
{
public:
    void BeginUpdate(bool /*flag*/) override {}
    void EndUpdate() override {}
};

VxCommon::TesselSystem MakeSystem(const char* folder)
{
    std::unique_ptr<TesselLib::DirectoryStorage> storage;
    VX_CHECK(TesselLib::DirectoryStorage::Open(folder, &storage));
    std::vector<TesselLib::VirtualNodeDescription> nodes(1);
    nodes[0].info.id = 1;
    nodes[0].storage = std::move(storage);

    TesselLib::System* system = nullptr;
    VX_CHECK(TesselLib::VirtualSystem_Construct(&system, std::move(nodes)));
    Vx::Object<void*> owner(static_cast<Nucleo::Object*>(system));
    TesselLib::Node* node = nullptr;
    VX_CHECK(system->FindNode(1, &node));
    return {std::move(owner), node, VxCommon::TesselSystem::ApplicationType::PixoraService, nullptr};
}

/// What the counter is after a job that was saved with 7 has been loaded again.
int SaveAndLoad(const char* folder)
{
    VxCommon::TesselSystem system = MakeSystem(folder);
    NothingToUpdate updatable;
    Counter counter;
    VxCommon::PersistManager manager(system, updatable);
    void* registration = manager.RegisterHandler(counter, "");
    manager.Init();
    manager.LoadGlobal();
    manager.LoadWorkspace();
    manager.LoadDefaultJob();

    counter.value = 7;
    manager.SaveJob("first");
    counter.value = 1;
    manager.LoadJob("first");

    manager.Shutdown();
    manager.UnregisterHandler(registration);
    return counter.value;
}

}  // namespace

int main(int count, char** arguments)
{
    if (count != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", arguments[0]);
        return 2;
    }
    try {
        const int value = SaveAndLoad(arguments[1]);
        std::printf("the counter is %d after the job was loaded, 7 when it was saved\n", value);
        return value == 7 ? 0 : 1;
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "%s: %s\n", arguments[0], exception.what());
        return 1;
    }
}
