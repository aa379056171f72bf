#pragma once
// Reports and caches of the tests of health.

#include <vector>

#include <gtest/gtest.h>

#include <VxCommon/Health/VcIndicatorCache.h>

namespace VxCommonTest
{

using Records = std::vector<VcHealthIndicator>;
using Report = Nucleo::ArrayList<VcHealthIndicator>;

inline Nucleo::Handle<Report> MakeReport(const Records& records)
{
    Nucleo::Handle<Report> report;
    EXPECT_EQ(Report::Make(report.Receive(), records.size(), nullptr), Nucleo::OK);
    for (const VcHealthIndicator& record : records) {
        EXPECT_EQ(report->Append(record), Nucleo::OK);
    }
    return report;
}

inline Nucleo::Handle<VcIndicatorCache> MakeCache(const Records& records)
{
    Nucleo::Handle<VcIndicatorCache> cache;
    EXPECT_EQ(VcIndicatorCache_Construct(cache.Receive(), nullptr), Nucleo::OK);
    EXPECT_EQ(VcIndicatorCache_Update(cache.Get(), MakeReport(records).Get()), Nucleo::OK);
    return cache;
}

}  // namespace VxCommonTest
