#include <VxCommon/ProblemsManager/ProblemList.h>

#include <functional>

namespace VxCommon
{
namespace
{

std::size_t HashOf(std::string_view msg, std::string_view source)
{
    constexpr std::hash<std::string_view> hash;
    return hash(msg) * 31 + hash(source);
}

}  // namespace

ProblemIterator ProblemList::Find(std::string_view msg, std::string_view source) const
{
    const std::size_t hash = HashOf(msg, source);
    // Holds the link to the entry, not the entry: counting references on the way would take longer than the walk.
    for (const std::shared_ptr<Node>* link = &first_; *link; link = &(*link)->next) {
        const Node& node = **link;
        if (node.hash == hash && node.problem.msg == msg && node.problem.source == source) {
            return ProblemIterator(*link);
        }
    }
    return {};
}

bool ProblemList::Holds(const ProblemIterator& it) const noexcept
{
    const Node* node = first_.get();
    while (node != nullptr && node != it.node_.get()) {
        node = node->next.get();
    }
    return node != nullptr;
}

ProblemIterator ProblemList::Append(Problem problem)
{
    const std::size_t hash = HashOf(problem.msg, problem.source);
    const auto node = std::make_shared<Node>(Node{std::move(problem), hash, nullptr, last_});
    (last_ != nullptr ? last_->next : first_) = node;
    last_ = node.get();
    ++count_;
    return ProblemIterator(node);
}

void ProblemList::Remove(const ProblemIterator& it) noexcept
{
    const std::shared_ptr<Node> node = it.node_;
    (node->next ? node->next->previous : last_) = node->previous;
    (node->previous != nullptr ? node->previous->next : first_) = std::move(node->next);
    --count_;
}

void ProblemList::Clear() noexcept
{
    // One by one: entries that free each other would need a stack as deep as the list is long.
    while (first_) {
        first_ = std::move(std::shared_ptr<Node>(std::move(first_))->next);
    }
    last_ = nullptr;
    count_ = 0;
}

void ProblemList::Swap(ProblemList& other) noexcept
{
    first_.swap(other.first_);
    std::swap(last_, other.last_);
    std::swap(count_, other.count_);
}

}  // namespace VxCommon
