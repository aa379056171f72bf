#include <stdexcept>

#include <VxRest/Request.h>

namespace VxRest
{

const std::string& RequestInfo::FindKey(std::string_view name) const
{
    const auto found = keys_.find(name);
    if (found == keys_.end()) {
        throw std::out_of_range("the request path has no key \"" + std::string(name) + "\"");
    }
    return found->second;
}

void ResponseInfo::Embed(std::string relation, std::string path, bool link, nlohmann::json document)
{
    embedded_.push_back({std::move(relation), std::move(path), link, std::move(document)});
}

void ResponseInfo::SetText(std::string mediaType, std::string text)
{
    text_ = TextBody{std::move(mediaType), std::move(text)};
}

}  // namespace VxRest
