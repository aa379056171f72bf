#include "Version.h"

const char* const VxHost::Version = VX_HOST_VERSION;
