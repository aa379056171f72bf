#include <TesselLib/Assembly.h>

#include <exception>

#include <TesselLib/Address.h>
#include <TesselLib/Archive.h>
#include <TesselLib/Health.h>
#include <TesselLib/System.h>
#include <TesselLib/Zstd.h>

namespace TesselLib
{
namespace
{

Nucleo::Status Fill(Nucleo::Assembly& assembly) noexcept
{
    Nucleo::Status status = assembly.AddDependency(Nucleo::Nucleo_Assembly());
    if (status == Nucleo::OK) {
        status = assembly.AddValue(IpConfig::StaticType(), {});
    }
    const Nucleo::TypeField statistic[] = {
        {"name", &Nucleo::CharType, offsetof(HealthStatistic, name), sizeof(HealthStatistic::name)},
        {"id", &Nucleo::UInt32Type, offsetof(HealthStatistic, id)},
        {"instance", &Nucleo::UInt32Type, offsetof(HealthStatistic, instance)},
        {"value", &Nucleo::Int64Type, offsetof(HealthStatistic, value)}};
    if (status == Nucleo::OK) {
        status = assembly.AddValue(HealthStatistic::StaticType(), statistic);
    }
    const Nucleo::TypeField event[] = {{"dateTime", &Nucleo::UInt64Type, offsetof(InputEvent, dateTime)},
                                       {"input", &Nucleo::UInt32Type, offsetof(InputEvent, input)},
                                       {"level", &Nucleo::UInt32Type, offsetof(InputEvent, level)}};
    if (status == Nucleo::OK) {
        status = assembly.AddValue(InputEvent::StaticType(), event);
    }
    for (const Nucleo::Type* type : {&Archive::StaticType(), &DataObject::StaticType(), &HealthMessage::StaticType(),
                                     &System::StaticType(), &ZstdStream::StaticType()}) {
        if (status == Nucleo::OK) {
            status = assembly.AddClass(*type, {});
        }
    }
    return status == Nucleo::OK ? assembly.Finalize() : status;
}

Nucleo::Assembly& MakeAssembly() noexcept
{
    constexpr Nucleo::Version version{{1, 0, 0, 0}};
    Nucleo::Assembly* assembly = nullptr;
    if (Nucleo::Assembly::Make(&assembly, "TesselLib", version, version, nullptr) != Nucleo::OK ||
        Fill(*assembly) != Nucleo::OK) {
        std::terminate();
    }
    return *assembly;
}

// Made when the library is loaded, so that it lives on the process heap whatever tests put in its place later.
Nucleo::Assembly& tesselLibAssembly = MakeAssembly();

}  // namespace

Nucleo::Assembly& TesselLib_Assembly() noexcept
{
    return tesselLibAssembly;
}

}  // namespace TesselLib
