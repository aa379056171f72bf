#include <TesselLib/Archive.h>
#include <TesselLib/System.h>
#include <TesselLib/Zstd.h>

namespace TesselLib
{

const Nucleo::Type& System::StaticType() noexcept
{
    static const Nucleo::Type type{"System", &Nucleo::Object::StaticType(), sizeof(System)};
    return type;
}

const Nucleo::Type& DataObject::StaticType() noexcept
{
    static const Nucleo::Type type{"DataObject", &Nucleo::Object::StaticType(), sizeof(DataObject)};
    return type;
}

const Nucleo::Type& Archive::StaticType() noexcept
{
    static const Nucleo::Type type{"Archive", &Nucleo::Object::StaticType(), sizeof(Archive)};
    return type;
}

const Nucleo::Type& ZstdStream::StaticType() noexcept
{
    static const Nucleo::Type type{"ZstdStream", &Nucleo::Stream::StaticType(), sizeof(ZstdStream)};
    return type;
}

}  // namespace TesselLib
