#pragma once
// Marks what the shared library exports; everything else stays inside it.

#if defined(_WIN32)
#if defined(VXCOMMON_BUILD)
#define VXCOMMON_API __declspec(dllexport)
#else
#define VXCOMMON_API __declspec(dllimport)
#endif
#else
#define VXCOMMON_API __attribute__((visibility("default")))
#endif
