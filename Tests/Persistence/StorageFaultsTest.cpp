// Each call that an operation makes to its storage fails in turn, once and from then on: what was there stays, and what
// is said to be done is done. On a folder it is the calls of the system that fail.

#include <Tests/Persistence/StorageFixture.h>
#include <VxCommon/Persistence/NodeStorage.h>
#include <VxCommon/Persistence/PersistManager.h>
#include <VxTestSupport/ManualTime.h>
#include <VxTestSupport/StorageBackends.h>

namespace VxCommon
{
namespace
{

struct Operation
{
    const char* what;
    std::function<void()> run;
    std::string done;           ///< What is there when it has ended with `outcome`.
    Journal undone = {before};  ///< What may be there when it has ended with the fault's status.
    Nucleo::Status outcome = OK;

    static constexpr const char* before = "a=intact a.d01=first b=other ";
};

template <class Backend>
class StorageFaultsTest : public testing::Test
{
protected:
    /// Runs the operation with each fault in turn over these files.
    void Sweep(const Operation& operation, const Map& files)
    {
        using VxTestSupport::StorageFault;
        static constexpr StorageFault faults[] = {{EIO, ERROR_IO},
                                                  {EACCES, ERROR_ACCESS},
                                                  {ENOMEM, ERROR_MEMORY},
                                                  {EMFILE, ERROR_TOO_MANY_FILES},
                                                  {ENOSPC, ERROR_DISK_FULL}};
        for (const auto call : Backend::calls) {
            for (const bool lasting : {false, true}) {
                bool reached = true;
                for (int nth = 1; reached; ++nth) {
                    fault_ = faults[runs_++ % std::size(faults)].status;
                    SCOPED_TRACE(testing::Message() << operation.what << ": " << testing::PrintToString(call) << " "
                                                    << nth << (lasting ? " and on" : ""));
                    for (const std::string& name : storage_.ListFiles("")) {
                        backend_.Remove(name);
                    }
                    for (const auto& [name, text] : files) {
                        backend_.Put(name, text);
                    }
                    Nucleo::Status status = OK;
                    const auto run = [&] { status = VxTestSupport::StatusThrown(operation.run); };
                    reached = backend_.Reaches(run, call, nth, faults[(runs_ - 1) % std::size(faults)], lasting);
                    EXPECT_THAT(status, testing::AnyOf(operation.outcome, reached ? fault_ : operation.outcome));
                    EXPECT_THAT(status == operation.outcome ? Journal{operation.done} : operation.undone,
                                testing::Contains(Files()));
                }
            }
        }
    }

    std::string Files() const
    {
        std::string files;
        for (const std::string& name : storage_.ListFiles("")) {
            const Bytes bytes = storage_.ReadFile(name);
            files.append(name).append("=").append(bytes.begin(), bytes.end()).append(" ");
        }
        return files;
    }

    VxTestSupport::ScopedManualTime time_;
    Backend backend_;
    VxTestSupport::TestSystem platform_{VxTestSupport::TestSystem::LocalNode(backend_.Open())};
    TesselSystem system_{Vx::Object<void*>(platform_.NewSystemReference()), &platform_.Node(),
                         IPlatformAttributes::ApplicationType::PixoraFirmware, nullptr};
    NodeStorage storage_{system_};
    std::size_t runs_ = 0;
    Nucleo::Status fault_ = OK;
};

using Backends = testing::Types<VxTestSupport::InMemory, VxTestSupport::OnFolder>;
TYPED_TEST_SUITE(StorageFaultsTest, Backends);

TYPED_TEST(StorageFaultsTest, NoFileIsLostAndNoneIsTakenForMissing)
{
    NodeStorage& storage = this->storage_;
    const auto write = [&](const char* name) { storage.WriteFile(name, ToBytes("new").data(), 3); };
    const std::string before = Operation::before;
    const Operation operations[] = {
        {"read", [&] { EXPECT_EQ(storage.ReadFile("a"), ToBytes("intact")); }, before},
        {"read none", [&] { storage.ReadFile("none"); }, before, {before}, ERROR_NOT_FOUND},
        {"size", [&] { EXPECT_EQ(storage.FileSize("a"), 6U); }, before},
        {"look", [&] { EXPECT_TRUE(storage.FileExists("a")); }, before},
        {"list", [&] { EXPECT_EQ(storage.ListFiles("").size(), 3U); }, before},
        {"write", [&] { write("c"); }, before + "c=new "},
        {"write over", [&] { write("a"); }, "a=new a.d01=first b=other "},
        {"copy", [&] { storage.CopyFile("a", "c"); }, before + "c=intact "},
        {"copy none", [&] { storage.CopyFile("none", "c"); }, before, {before}, ERROR_NOT_FOUND},
        {"copy onto", [&] { storage.CopyFile("a", "b"); }, before, {before}, ERROR_ALREADY_EXISTS},
        {"keep", [&] { storage.CopyForDiagnosis("a", 5); }, "a=intact a.d01=first a.d02=intact b=other "},
        {"keep last", [&] { storage.CopyForDiagnosis("a", 1); }, "a=intact a.d01=intact b=other "},
        {"move", [&] { storage.MoveForDiagnosis("a", 5); }, "a.d01=first a.d02=intact b=other "},
        {"move last", [&] { storage.MoveForDiagnosis("a", 1); }, "a.d01=intact b=other "},
        {"delete", [&] { storage.DeleteFile("a"); }, "a.d01=first b=other "},
    };
    for (const Operation& operation : operations) {
        this->Sweep(operation, {{"a", "intact"}, {"a.d01", "first"}, {"b", "other"}});
    }
}

TYPED_TEST(StorageFaultsTest, NeitherJobsNorDomainsAreLost)
{
    Journal journal;
    FakeUpdatable updatable(journal);
    FakeHandler handler("A", journal);
    PersistManager manager(this->system_, updatable);
    manager.RegisterHandler(handler, "");
    const auto image = [](const char* value) {
        const Bytes bytes = Image({{"/A", value}});
        return std::string(bytes.begin(), bytes.end());
    };
    const auto save = [&] {
        handler.values[PersistDomain::GLOBAL] = "new";
        manager.SaveGlobal();
    };
    const auto load = [&] {
        manager.LoadGlobal();
        if (handler.values[PersistDomain::GLOBAL] != "old") {
            VX_THROW(this->fault_, "fallen back");
        }
    };
    const Map files{{"Global.tar", image("old")}, {"a.vpjob", "job"}};
    const std::string domain = "Global.tar=" + image("old") + " ";
    const std::string before = domain + "a.vpjob=job ";
    const std::string copied = before + "c.vpjob=job ";
    const std::string fallenBack =
        "Global.tar=" + image("factory") + " Global.tar.d01=" + image("old") + " a.vpjob=job ";
    this->Sweep({"copy", [&] { manager.CopyJob("a", "c"); }, copied, {before}}, files);
    this->Sweep({"rename", [&] { manager.RenameJob("a", "c"); }, domain + "c.vpjob=job ", {before, copied}}, files);
    this->Sweep({"save", save, "Global.tar=" + image("new") + " a.vpjob=job ", {before}}, files);
    const std::string setAside = "Global.tar.d01=" + image("old") + " a.vpjob=job ";  // And there is no writing.
    this->Sweep({"load", load, before, {before, fallenBack, setAside}}, files);
}

}  // namespace
}  // namespace VxCommon
