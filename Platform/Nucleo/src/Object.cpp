#include <Nucleo/Object.h>

namespace Nucleo
{

const Type& Object::StaticType() noexcept
{
    static constexpr Type type{"Object", nullptr, sizeof(Object)};
    return type;
}

Status Object::Release() noexcept
{
    // The owner of the only reference has nobody to race with, and saves the price of an atomic change.
    if (!IsUnique() && references_.fetch_sub(1, std::memory_order_acq_rel) != 1) {
        return OK;
    }
    for (const Type* type = type_; type != nullptr; type = type->base) {
        if (type->vRelease == nullptr) {
            continue;
        }
        if (const Status status = type->vRelease(this); status != OK) {
            references_.store(1, std::memory_order_relaxed);
            return status;
        }
        break;  // An override calls its base's release itself where it has one.
    }
    Allocator& allocator = *allocator_;
    this->~Object();
    return allocator.Free(this);
}

}  // namespace Nucleo
