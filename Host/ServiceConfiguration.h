#pragma once
// What vxhost takes from StudioAppCfg.xml in the data folder when it runs as the PC service.

#include "HostOptions.h"

namespace VxHost
{

/// Which options the command line named: these win over the file.
struct NamedOptions
{
    bool address = false;
    bool port = false;
    bool logLevel = false;
};

/// Takes the web port, the address and the debug level; the defaults where the file is missing. What was taken from
/// which file, and what is odd about that, is put into `options.configuration`. Changes nothing on disk. Throws
/// Vx::Exception when the file cannot be used.
void ApplyServiceConfiguration(HostOptions& options, const NamedOptions& named);

/// Makes the file with the defaults where it is missing. The caller holds the folder's lock. Throws Vx::Exception.
void CreateServiceConfiguration(const HostOptions& options);

}  // namespace VxHost
