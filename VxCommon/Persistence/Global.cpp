#include <VxCommon/Persistence/Global.h>

namespace VxCommon::Persist
{

const char* const Global::GLOBAL_FILE = "Global.tar";

}  // namespace VxCommon::Persist
