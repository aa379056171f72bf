#include <VxApi/Exception.h>
#include <VxCommon/Protocol/Problems/ProblemsDir.h>

namespace VxCommon
{

ProblemsDir::ProblemsDir(ProblemsManager& manager) : problems_(manager) {}

ProblemsDir::~ProblemsDir()
{
    if (router_ != nullptr) {
        Deregister(*router_);
    }
}

void ProblemsDir::Register(VxRest::ResourceRouter& router)
{
    if (router_ != nullptr) {
        VX_THROW(Nucleo::ERROR_ALREADY_EXISTS, "The problems resource is registered already.");
    }
    router.Register("/problems", problems_);
    router_ = &router;
}

void ProblemsDir::Deregister(VxRest::ResourceRouter& router)
{
    router.Deregister("/problems", true);
    if (router_ == &router) {
        router_ = nullptr;
    }
}

}  // namespace VxCommon
