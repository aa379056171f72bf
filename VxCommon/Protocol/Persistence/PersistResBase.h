#pragma once

#include <VxCommon/Persistence/PersistManager.h>

namespace VxCommon::Internal
{

/// What every resource of the job system has: the manager, which must outlive it.
class PersistResBase
{
public:
    explicit PersistResBase(PersistManager& manager) : manager_(manager) {}

protected:
    ~PersistResBase() = default;
    PersistResBase(const PersistResBase&) = default;

    PersistManager& Manager() const { return manager_; }

private:
    PersistManager& manager_;
};

}  // namespace VxCommon::Internal
