#pragma once
// The list of open problems, and the iterators into it.
//
// An iterator shares the entry that it designates: it outlives the list, a problem that was removed can still be read
// through it, and a new problem with the same texts is never taken for the old one.

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <VxCommon/ProblemsManager/VcProblemSeverity.h>

namespace VxCommon
{

/// A condition that users should see.
struct Problem
{
    std::string msg;
    std::string source;  ///< Who reports it.
    VcProblemSeverity severity = VcProblemSeverity_Potential;
    std::uint32_t refCount = 1;  ///< Reports that were not withdrawn yet.

    /// The same problem: the same message of the same source, whatever its severity.
    friend bool operator==(const Problem& left, const Problem& right) noexcept
    {
        return left.msg == right.msg && left.source == right.source;
    }
};

/// Designates a problem, or none (the end). Copies are cheap. Message, source and severity of its problem never change
/// and may be read on any thread; refCount and the way to the next problem belong to the lock of the list's owner.
class ProblemIterator
{
public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Problem;
    using difference_type = std::ptrdiff_t;
    using pointer = const Problem*;
    using reference = const Problem&;

    /// The end of every list.
    ProblemIterator() = default;

    /// False for the end.
    explicit operator bool() const noexcept { return node_ != nullptr; }

    reference operator*() const noexcept { return node_->problem; }
    pointer operator->() const noexcept { return &node_->problem; }

    /// To the next problem; to the end from the last one, and from one that is in no list any more.
    ProblemIterator& operator++()
    {
        node_ = node_->next;
        return *this;
    }
    ProblemIterator operator++(int)
    {
        ProblemIterator before = *this;
        ++*this;
        return before;
    }

    friend bool operator==(const ProblemIterator&, const ProblemIterator&) = default;

private:
    friend class ProblemList;

    struct Node
    {
        Problem problem;
        std::shared_ptr<Node> next;
        Node* previous;  // Null for the first one.
    };

    explicit ProblemIterator(std::shared_ptr<Node> node) noexcept : node_(std::move(node)) {}

    std::shared_ptr<Node> node_;
};

/// Problems in the order in which they were added. What an operation costs, Clear apart, does not depend on how many
/// there are. Not locked: its owner guards it.
class ProblemList
{
public:
    ProblemList() = default;
    ~ProblemList() { Clear(); }
    ProblemList(const ProblemList&) = delete;
    ProblemList& operator=(const ProblemList&) = delete;

    std::uint64_t Count() const noexcept { return index_.size(); }

    ProblemIterator First() const noexcept { return ProblemIterator(first_); }

    /// The problem with these texts; the end when there is none.
    ProblemIterator Find(std::string_view msg, std::string_view source) const;

    /// Whether `it` designates a problem of this list: false for the end and for one that was taken out.
    bool Holds(const ProblemIterator& it) const noexcept;

    /// Adds at the end a problem whose texts no other one in the list has. Throws std::bad_alloc, and adds nothing.
    ProblemIterator Append(Problem problem);

    // For a problem that is in the list.
    std::uint32_t& RefCount(const ProblemIterator& it) noexcept { return it.node_->problem.refCount; }
    void Remove(const ProblemIterator& it) noexcept;

    void Clear() noexcept;

    /// Exchanges the problems of two lists; iterators go along.
    void Swap(ProblemList& other) noexcept;

private:
    using Node = ProblemIterator::Node;

    /// Message and source of a problem, which belong to its entry.
    struct Texts
    {
        std::string_view msg;
        std::string_view source;

        friend bool operator==(const Texts&, const Texts&) = default;
    };
    struct HashOfTexts
    {
        std::size_t operator()(const Texts& texts) const;
    };

    static Texts TextsOf(const Node& node) noexcept { return {node.problem.msg, node.problem.source}; }

    /// What holds the entry: the one before it, or the list.
    const std::shared_ptr<Node>& Link(const Node& node) const noexcept
    {
        return node.previous != nullptr ? node.previous->next : first_;
    }

    std::shared_ptr<Node> first_;
    Node* last_ = nullptr;  // Null when empty.
    std::unordered_map<Texts, Node*, HashOfTexts> index_;
};

/// The problems of a list, for range-for. See ProblemsManager::Enumerate.
class ProblemsEnumerator
{
public:
    explicit ProblemsEnumerator(const ProblemList& list) noexcept : list_(list) {}

    ProblemIterator begin() const noexcept { return list_.First(); }
    ProblemIterator end() const noexcept { return {}; }

private:
    const ProblemList& list_;
};

}  // namespace VxCommon
