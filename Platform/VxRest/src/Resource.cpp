#include <VxApi/Exception.h>
#include <VxRest/Resource.h>

namespace VxRest
{

void DocumentResourceBase::UpdateDocument(const RequestInfo& /*request*/, const nlohmann::json& /*document*/)
{
    VX_THROW(Nucleo::ERROR_UNSUPPORTED, "the document can only be read");
}

}  // namespace VxRest
