#include "HealthSetsResource.h"

#include <limits>
#include <optional>
#include <vector>

#include <VxApi/Exception.h>
#include <VxApi/Locker.h>

#include "ToDocument.h"
#include "ToNumber.h"

namespace VxHost
{
namespace
{

template <class T>
using Value = Vx::Properties::Value<T>;

struct RangeArguments final : Vx::Properties::Structure
{
    Value<std::uint32_t> firstId{*this, "firstId", 0};
    Value<std::uint32_t> lastId{*this, "lastId", std::numeric_limits<std::uint32_t>::max()};
};

struct IndicatorProperties final : Vx::Properties::Structure
{
    Value<std::string> name{*this, "name"};
    Value<std::uint32_t> id{*this, "id"};
    Value<std::uint32_t> instance{*this, "instance"};
    Value<std::int64_t> value{*this, "value"};
};

struct SetProperties final : Vx::Properties::Structure
{
    Value<std::int32_t> id{*this, "id"};
    Vx::Properties::Array<IndicatorProperties> indicators{*this, "indicators"};
};

/// Takes the range from the arguments; others are not looked at.
void ReadRange(RangeArguments& range, const nlohmann::json& arguments)
{
    nlohmann::json known = nlohmann::json::object();
    for (const Vx::Properties::Field* field : range.Fields()) {
        if (const auto found = arguments.find(field->Name()); found != arguments.end()) {
            known[field->Name()] = *found;
        }
    }
    Vx::Properties::Update(range, known);
}

/// Copies the indicators of the range, so that the lock is not held while the document is made; nothing when there is
/// no such set.
std::optional<std::vector<VcHealthIndicator>> CopySet(VxCommon::Health& health, std::int32_t setId,
                                                      const RangeArguments& range)
{
    const Vx::Locker locker(health.GetLock());
    const VcIndicatorSet* set = health.GetPublicIndicators(setId);
    if (set == nullptr) {
        return std::nullopt;
    }
    std::vector<VcHealthIndicator> copied;
    for (const VcHealthIndicator& indicator : VcIndicatorSet_Indicators(set)->Items()) {
        if (indicator.id >= range.firstId.Get() && indicator.id <= range.lastId.Get()) {
            copied.push_back(indicator);
        }
    }
    return copied;
}

}  // namespace

nlohmann::json HealthSetsResource::Document(const VxRest::RequestInfo& request, VxRest::ResponseInfo& response)
{
    const auto key = request.Keys().find("id");
    if (key == request.Keys().end()) {
        response.Embed("item", DefaultSetPath, true, nullptr);
        return nullptr;
    }
    RangeArguments range;
    ReadRange(range, request.Args());
    SetProperties set;
    const auto id = ToNumber<std::int32_t>(key->second);
    const auto indicators = id ? CopySet(health_, *id, range) : std::nullopt;
    if (!indicators) {
        VX_THROW(Nucleo::ERROR_NOT_FOUND, "There is no set \"%s\" of health indicators.", key->second);
    }
    set.id.Set(*id);
    for (const VcHealthIndicator& indicator : *indicators) {
        IndicatorProperties& added = set.indicators.Add();
        added.name.Set(indicator.name);
        added.id.Set(indicator.id);
        added.instance.Set(indicator.instance);
        added.value.Set(indicator.value);
    }
    return ToDocument(set, request);
}

}  // namespace VxHost
