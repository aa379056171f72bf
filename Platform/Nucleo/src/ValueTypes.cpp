#include <Nucleo/ArrayList.h>

namespace Nucleo
{

constinit const Type Int32Type{"i32", nullptr, sizeof(std::int32_t)};
constinit const Type UInt32Type{"u32", nullptr, sizeof(std::uint32_t)};
constinit const Type Int64Type{"i64", nullptr, sizeof(std::int64_t)};
constinit const Type UInt64Type{"u64", nullptr, sizeof(std::uint64_t)};
constinit const Type Float32Type{"f32", nullptr, sizeof(float)};
constinit const Type Float64Type{"f64", nullptr, sizeof(double)};
constinit const Type CharType{"char", nullptr, sizeof(char)};
constinit const Type StringType{"string", nullptr, sizeof(const char*)};
constinit const Type UInt8Type{"u8", nullptr, sizeof(std::uint8_t)};
constinit const Type ObjectHandleType{"handle", nullptr, sizeof(void*)};

const Type& AnyArrayList::StaticType() noexcept
{
    static const Type type{"AnyArrayList", &Object::StaticType(), sizeof(AnyArrayList)};
    return type;
}

}  // namespace Nucleo
