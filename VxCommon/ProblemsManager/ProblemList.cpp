#include <VxCommon/ProblemsManager/ProblemList.h>

#include <functional>

namespace VxCommon
{

std::size_t ProblemList::HashOfTexts::operator()(const Texts& texts) const
{
    constexpr std::hash<std::string_view> hash;
    return hash(texts.msg) * 31 + hash(texts.source);
}

ProblemIterator ProblemList::Find(std::string_view msg, std::string_view source) const
{
    const auto found = index_.find({msg, source});
    return found != index_.end() ? ProblemIterator(Link(*found->second)) : ProblemIterator();
}

bool ProblemList::Holds(const ProblemIterator& it) const noexcept
{
    if (!it) {
        return false;
    }
    const auto found = index_.find(TextsOf(*it.node_));
    return found != index_.end() && found->second == it.node_.get();
}

ProblemIterator ProblemList::Append(Problem problem)
{
    const auto node = std::make_shared<Node>(Node{std::move(problem), nullptr, last_});
    index_.emplace(TextsOf(*node), node.get());
    (last_ != nullptr ? last_->next : first_) = node;
    last_ = node.get();
    return ProblemIterator(node);
}

void ProblemList::Remove(const ProblemIterator& it) noexcept
{
    const std::shared_ptr<Node> node = it.node_;
    index_.erase(TextsOf(*node));
    (node->next ? node->next->previous : last_) = node->previous;
    (node->previous != nullptr ? node->previous->next : first_) = std::move(node->next);
}

void ProblemList::Clear() noexcept
{
    index_.clear();
    // One by one: entries that free each other would need a stack as deep as the list is long.
    while (first_) {
        first_ = std::move(std::shared_ptr<Node>(std::move(first_))->next);
    }
    last_ = nullptr;
}

void ProblemList::Swap(ProblemList& other) noexcept
{
    first_.swap(other.first_);
    std::swap(last_, other.last_);
    index_.swap(other.index_);
}

}  // namespace VxCommon
