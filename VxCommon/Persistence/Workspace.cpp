#include <VxCommon/Persistence/Workspace.h>

namespace VxCommon::Persist
{

const char* const Workspace::WORKSPACE_FILE = "Workspace.vpws";

}  // namespace VxCommon::Persist
