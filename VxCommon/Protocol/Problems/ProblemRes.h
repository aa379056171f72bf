#pragma once
// The document of the current problems.

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <VxApi/Event.h>
#include <VxApi/Properties.h>
#include <VxCommon/ProblemsManager/ProblemsManager.h>
#include <VxRest/Resource.h>

template <>
struct Vx::Properties::EnumTraits<VcProblemSeverity>
{
    static std::vector<std::pair<VcProblemSeverity, std::string>> Values()
    {
        std::vector<std::pair<VcProblemSeverity, std::string>> values;
        for (const VcProblemSeverity value : {VcProblemSeverity_Potential, VcProblemSeverity_Blocking}) {
            values.emplace_back(value, VcProblemSeverity_Name(value));
        }
        return values;
    }
};

namespace VxCommon::Internal
{

/// One problem.
struct ProblemsProperties : Vx::Properties::Structure
{
    Vx::Properties::Value<std::string> msg{*this, "msg"};
    Vx::Properties::Value<std::string> source{*this, "source"};
    Vx::Properties::Value<VcProblemSeverity> severity{*this, "severity"};
};

/// "/problems": the list under "items", in the manager's order; the schema on request is that of an item. Turns changes
/// of the list into notices. Safe on any thread.
class ProblemRes final : public VxRest::DocumentResourceBase
{
public:
    /// `manager` must outlive the resource.
    explicit ProblemRes(ProblemsManager& manager);

    /// Waits for a notice that another thread is just sending.
    ~ProblemRes() override;
    ProblemRes(const ProblemRes&) = delete;
    ProblemRes& operator=(const ProblemRes&) = delete;

    nlohmann::json Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& response) override;

    /// Sends a notice. What its listeners throw is logged: a client that cannot be told undoes no report.
    void OnProblemsUpdated() noexcept;

private:
    struct Link;

    ProblemsManager& manager_;
    const std::shared_ptr<Link> link_;
    Vx::Subscription updated_;
};

}  // namespace VxCommon::Internal
