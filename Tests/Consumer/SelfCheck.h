#pragma once

#include <cstdio>

#include "Host.h"

/// Starts a host, changes its state, saves jobs, starts it again and loads them. Prints what came back; answers 0 when
/// that is right, else 1.
inline int SelfCheck(const std::filesystem::path& folder)
{
    using enum VxCommon::PersistDomain;
    {
        Host host(folder);
        host.Manager().SaveJob("first");  // Nothing has changed yet: it holds the defaults.
        host.TheLamp().SetBrightness(GLOBAL, 10);
        host.TheLamp().SetBrightness(WORKSPACE, 20);
        host.TheLamp().SetBrightness(JOB, 30);
        host.Manager().SaveJob("second");
        host.Stop();
    }
    Host host(folder);
    const Lamp& lamp = host.TheLamp();
    host.Manager().LoadJob("second");
    const double second = lamp.Brightness(JOB);
    host.Manager().LoadJob("first");
    const std::array found{lamp.Brightness(GLOBAL), lamp.Brightness(WORKSPACE), second, lamp.Brightness(JOB)};
    std::printf("device %g, workspace %g, second job %g, first job %g; expected 10, 20, 30, 50\n", found[0], found[1],
                found[2], found[3]);
    return found == std::array{10.0, 20.0, 30.0, Lamp::Default} ? 0 : 1;
}
