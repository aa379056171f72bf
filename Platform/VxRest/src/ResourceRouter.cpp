#include <algorithm>
#include <condition_variable>
#include <map>
#include <optional>
#include <set>
#include <thread>
#include <utility>

#include <Nucleo/Lock.h>
#include <VxApi/Exception.h>
#include <VxRest/Path.h>
#include <VxRest/ResourceRouter.h>

namespace VxRest
{

namespace
{

/// One segment of a pattern. Keys compare equal and after every literal, so that a walk in map order meets literals
/// first and a collection's own pattern before its members'.
struct Segment
{
    bool key = false;
    std::string text;

    friend bool operator<(const Segment& left, const Segment& right)
    {
        return left.key != right.key ? right.key : !left.key && left.text < right.text;
    }
};
using Shape = std::vector<Segment>;

Shape ParsePattern(const std::string& pattern)
{
    if (!pattern.starts_with('/')) {
        VX_THROW(Nucleo::ERROR_PARAMETER, "the pattern \"%s\" does not begin with \"/\"", pattern);
    }
    Shape shape;
    std::set<std::string_view> keys;
    for (const std::string_view text : Path::Segments(pattern)) {
        const bool key = text.starts_with(':');
        if (key && (text.size() == 1 || !keys.insert(text).second)) {
            VX_THROW(Nucleo::ERROR_PARAMETER, "the pattern \"%s\" has a key without a name or twice", pattern);
        }
        shape.push_back({key, std::string(text.substr(key ? 1 : 0))});
    }
    return shape;
}

/// The pattern without empty segments.
std::string Normalize(std::string_view pattern)
{
    std::string normal;
    for (const std::string_view segment : Path::Segments(pattern)) {
        normal += '/';
        normal += segment;
    }
    return normal.empty() ? "/" : normal;
}

std::vector<std::string> DecodeSegments(std::string_view path)
{
    const std::vector<std::string_view> raw = Path::Segments(path);
    std::vector<std::string> segments;
    segments.reserve(raw.size());
    for (const std::string_view segment : raw) {
        if (segment.find('%') == std::string_view::npos) {
            segments.emplace_back(segment);
            continue;
        }
        std::optional<std::string> decoded = Path::Decode(segment);
        if (!decoded) {
            VX_THROW(Nucleo::ERROR_PARAMETER, "the path segment \"%s\" has a \"%%\" without two hexadecimal digits",
                     std::string(segment));
        }
        segments.push_back(std::move(*decoded));
    }
    return segments;
}

/// Whether the first `count` segments of `shape` take those of `path`.
bool Takes(const Shape& shape, const std::vector<std::string>& path, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        if (!shape[i].key && shape[i].text != path[i]) {
            return false;
        }
    }
    return true;
}

/// One request at a time in a sub-tree, re-entrant. Guarded by the router's mutex: never held while a resource is
/// called, so that a waiting request can be told that its resource is gone.
struct Turn
{
    std::thread::id owner;
    int depth = 0;
};

struct SerialRoot
{
    std::string path;
    std::vector<std::string> segments;
    std::shared_ptr<Turn> turn;
};

/// A registered resource. `turn`, `holds` and `removed` are guarded by the router's mutex.
struct Entry
{
    std::string pattern;
    ResourceBase* resource = nullptr;
    Vx::Subscription notices;
    std::shared_ptr<Turn> turn;  ///< Of a pattern without keys, which has but one path.
    int holds = 0;               ///< Matches that are alive.
    bool removed = false;
};

bool HasKeys(const Shape& shape)
{
    return std::any_of(shape.begin(), shape.end(), [](const Segment& segment) { return segment.key; });
}

/// The calls that this thread is inside of, innermost first.
struct Frame
{
    const Entry* entry;
    Frame* outer;
};
thread_local Frame* innermostFrame = nullptr;

int OwnCalls(const Entry& entry)
{
    int count = 0;
    for (const Frame* frame = innermostFrame; frame != nullptr; frame = frame->outer) {
        count += frame->entry == &entry ? 1 : 0;
    }
    return count;
}

}  // namespace

struct ResourceRouter::State
{
    Nucleo::Mutex mutex;
    std::condition_variable_any changed;
    std::map<Shape, std::shared_ptr<Entry>> entries VX_GUARDED_BY(mutex);
    std::map<std::string, std::shared_ptr<Entry>, std::less<>> literals VX_GUARDED_BY(mutex);  ///< Those without keys.
    std::vector<std::shared_ptr<Entry>> leaving VX_GUARDED_BY(mutex);  ///< Removed, with matches that are still alive.
    std::vector<SerialRoot> roots VX_GUARDED_BY(mutex);                ///< Shorter roots first.
    ResourceBase::NotificationEventType notices;

    std::shared_ptr<Turn> TurnOf(const std::vector<std::string>& path) const VX_REQUIRES(mutex)
    {
        for (const SerialRoot& root : roots) {
            if (root.segments.size() <= path.size() &&
                std::equal(root.segments.begin(), root.segments.end(), path.begin())) {
                return root.turn;
            }
        }
        return nullptr;
    }

    /// To be called when entries or roots have changed. Without memory there is no index, and Find does without.
    void IndexLiterals() noexcept VX_REQUIRES(mutex)
    {
        literals.clear();
        try {
            for (const auto& [shape, entry] : entries) {
                // A pattern is text, a path is encoded: what is spelled with "%" is never the same by accident.
                if (!HasKeys(shape) && entry->pattern.find('%') == std::string::npos) {
                    const auto segments = Path::Segments(entry->pattern);
                    entry->turn = TurnOf({segments.begin(), segments.end()});
                    literals.emplace(entry->pattern, entry);
                }
            }
        } catch (const std::bad_alloc&) {
            literals.clear();
        }
    }

    void Release(const std::shared_ptr<Entry>& entry)
    {
        const Nucleo::MutexGuard guard(mutex);
        --entry->holds;
        if (entry->removed) {
            if (entry->holds == 0) {
                std::erase(leaving, entry);
            }
            changed.notify_all();
        }
    }
};

struct ResourceRouter::Match::Call
{
    std::shared_ptr<State> state;
    std::shared_ptr<Entry> entry;
    std::shared_ptr<Turn> turn;  ///< Null when the sub-tree is not serialised.
    RequestInfo::KeyMap keys;
    bool member = false;

    ~Call() { state->Release(entry); }
};

/// A call into a resource, from taking the sub-tree's turn to giving it back.
class ResourceRouter::Match::Running
{
public:
    enum class Patience
    {
        Wait,
        Try
    };

    explicit Running(const Call& call, Patience patience = Patience::Wait) : call_(call)
    {
        frame_ = {call.entry.get(), innermostFrame};
        const Nucleo::MutexGuard guard(call.state->mutex);
        const std::thread::id self = std::this_thread::get_id();
        while (!call.entry->removed && call.turn && call.turn->depth > 0 && call.turn->owner != self) {
            if (patience == Patience::Try) {
                return;
            }
            call.state->changed.wait(call.state->mutex);
        }
        if (call.entry->removed) {
            VX_THROW(Nucleo::ERROR_NOT_FOUND, "the resource %s is no longer there", call.entry->pattern);
        }
        if (call.turn) {
            call.turn->owner = self;
            ++call.turn->depth;
        }
        innermostFrame = &frame_;
        entered_ = true;
    }

    ~Running()
    {
        if (!entered_) {
            return;
        }
        innermostFrame = frame_.outer;
        if (call_.turn) {
            const Nucleo::MutexGuard guard(call_.state->mutex);
            if (--call_.turn->depth == 0) {
                call_.state->changed.notify_all();
            }
        }
    }

    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

    bool Entered() const { return entered_; }

private:
    const Call& call_;
    Frame frame_{};
    bool entered_ = false;
};

ResourceRouter::ResourceRouter() : state_(std::make_shared<State>()) {}

ResourceRouter::~ResourceRouter()
{
    std::map<Shape, std::shared_ptr<Entry>> entries;
    {
        const Nucleo::MutexGuard guard(state_->mutex);
        entries.swap(state_->entries);
    }
    for (auto& [shape, entry] : entries) {
        entry->notices.Reset();
    }
}

void ResourceRouter::Register(const std::string& pattern, ResourceBase& resource)
{
    Shape shape = ParsePattern(pattern);
    const auto entry = std::make_shared<Entry>();
    entry->pattern = Normalize(pattern);
    entry->resource = &resource;
    entry->notices = resource.NotificationEvent().Subscribe(
        [weak = std::weak_ptr<State>(state_)](EventType type, const std::string& path) {
            if (const auto state = weak.lock()) {
                state->notices.Raise(type, path);
            }
        });
    bool taken = false;
    {
        const Nucleo::MutexGuard guard(state_->mutex);
        taken = !state_->entries.emplace(std::move(shape), entry).second;
        state_->IndexLiterals();
    }
    if (taken) {
        VX_THROW(Nucleo::ERROR_ALREADY_EXISTS, "the pattern \"%s\" is registered already", pattern);
    }
}

void ResourceRouter::Deregister(const std::string& pattern, bool recursive)
{
    const std::string root = Normalize(pattern);
    const auto affected = [&](const std::string& candidate) {
        return candidate == root || (recursive && Path::IsWithin(root, candidate));
    };
    std::vector<std::shared_ptr<Entry>> removed;
    const Nucleo::MutexGuard guard(state_->mutex);
    // All memory comes first: what has begun is carried through.
    const std::size_t most = state_->leaving.size() + state_->entries.size();
    removed.reserve(most);
    state_->leaving.reserve(most);
    // Whoever calls from outside may destroy the resources as soon as this returns, so it also waits for those that
    // another caller is just removing. From inside a call that would let two such callers wait for each other.
    if (innermostFrame == nullptr) {
        for (const auto& entry : state_->leaving) {
            if (affected(entry->pattern)) {
                removed.push_back(entry);
            }
        }
    }
    for (auto it = state_->entries.begin(); it != state_->entries.end();) {
        const std::shared_ptr<Entry> entry = it->second;
        if (!affected(entry->pattern)) {
            ++it;
            continue;
        }
        entry->removed = true;
        // Under the lock, so that another caller who finds the resource gone finds its notices ended as well.
        entry->notices.Reset();
        removed.push_back(entry);
        if (entry->holds > 0) {
            state_->leaving.push_back(entry);
        }
        it = state_->entries.erase(it);
    }
    std::erase_if(state_->roots, [&](const SerialRoot& serial) { return affected(serial.path); });
    state_->IndexLiterals();
    state_->changed.notify_all();
    for (const auto& entry : removed) {
        while (entry->holds > OwnCalls(*entry)) {
            state_->changed.wait(state_->mutex);
        }
    }
}

void ResourceRouter::Serialize(const std::string& root)
{
    const Shape shape = ParsePattern(root);
    SerialRoot serial{Normalize(root), {}, std::make_shared<Turn>()};
    for (const Segment& segment : shape) {
        if (segment.key) {
            VX_THROW(Nucleo::ERROR_PARAMETER, "the root \"%s\" of a serialised sub-tree has a key", root);
        }
        serial.segments.push_back(segment.text);
    }
    const Nucleo::MutexGuard guard(state_->mutex);
    const auto at = std::find_if(state_->roots.begin(), state_->roots.end(), [&](const SerialRoot& other) {
        return other.segments.size() >= serial.segments.size();
    });
    const bool known = std::any_of(at, state_->roots.end(),
                                   [&](const SerialRoot& other) { return other.segments == serial.segments; });
    if (!known) {
        state_->roots.insert(at, std::move(serial));
        state_->IndexLiterals();
    }
}

std::vector<std::string> ResourceRouter::Patterns() const
{
    std::vector<std::string> patterns;
    {
        const Nucleo::MutexGuard guard(state_->mutex);
        for (const auto& [shape, entry] : state_->entries) {
            patterns.push_back(entry->pattern);
        }
    }
    std::sort(patterns.begin(), patterns.end());
    return patterns;
}

ResourceRouter::Match ResourceRouter::Find(std::string_view path) const
{
    {
        // A pattern without keys that is spelled just like the path goes before everything else.
        const Nucleo::MutexGuard guard(state_->mutex);
        if (const auto literal = state_->literals.find(path); literal != state_->literals.end()) {
            const std::shared_ptr<Entry>& entry = literal->second;
            std::unique_ptr<Match::Call> call(new Match::Call{state_, entry, entry->turn, {}, false});
            ++entry->holds;
            return Match(std::move(call));
        }
    }
    std::vector<std::string> segments = DecodeSegments(path);
    const std::size_t length = segments.size();
    {
        const Nucleo::MutexGuard guard(state_->mutex);
        for (const auto& [shape, entry] : state_->entries) {
            const bool whole = shape.size() == length;
            const bool parent = shape.size() == length + 1 && shape.back().key;
            if ((!whole && !parent) || !Takes(shape, segments, length)) {
                continue;
            }
            auto turn = state_->TurnOf(segments);
            RequestInfo::KeyMap keys;
            for (std::size_t i = 0; i < length; ++i) {
                if (shape[i].key) {
                    keys.emplace(shape[i].text, std::move(segments[i]));
                }
            }
            const bool member = whole && length > 0 && shape.back().key;
            std::unique_ptr<Match::Call> call(new Match::Call{state_, entry, std::move(turn), std::move(keys), member});
            ++entry->holds;
            return Match(std::move(call));
        }
    }
    VX_THROW(Nucleo::ERROR_NOT_FOUND, "there is no resource at \"%s\"", std::string(path));
}

ResourceBase::NotificationEventType& ResourceRouter::NotificationEvent() noexcept
{
    return state_->notices;
}

ResourceRouter::Match::Match(std::unique_ptr<Call> call) : call_(std::move(call)) {}
ResourceRouter::Match::Match(Match&&) noexcept = default;
ResourceRouter::Match& ResourceRouter::Match::operator=(Match&&) noexcept = default;
ResourceRouter::Match::~Match() = default;

ResourceBase& ResourceRouter::Match::Resource() const
{
    return *call_->entry->resource;
}

const RequestInfo::KeyMap& ResourceRouter::Match::Keys() const
{
    return call_->keys;
}

bool ResourceRouter::Match::Allows(Operation operation) const
{
    ResourceBase& resource = Resource();
    switch (operation) {
        case Operation::Document:
            return resource.DocumentProvider() != nullptr;
        case Operation::UpdateDocument:
            return resource.DocumentProvider() != nullptr && resource.DocumentProvider()->TakesUpdates(Keys());
        case Operation::Create:
            return !call_->member && resource.ParentProvider() != nullptr;
        case Operation::Delete:
            return call_->member && resource.ParentProvider() != nullptr;
        case Operation::Invoke:
            return resource.CallableProvider() != nullptr;
    }
    return false;
}

namespace
{

/// The provider if the path takes the operation.
template <class Provider>
Provider& Require(Provider* provider, const ResourceRouter::Match& match, Operation operation)
{
    if (provider == nullptr || !match.Allows(operation)) {
        VX_THROW(Nucleo::ERROR_UNSUPPORTED, "this path does not take the request's method");
    }
    return *provider;
}

}  // namespace

nlohmann::json ResourceRouter::Match::Document(const RequestInfo& request, ResponseInfo& response) const
{
    const Running running(*call_);
    return Require(Resource().DocumentProvider(), *this, Operation::Document).Document(request, response);
}

bool ResourceRouter::Match::TryDocument(const RequestInfo& request, ResponseInfo& response,
                                        nlohmann::json& document) const
{
    const Running running(*call_, Running::Patience::Try);
    if (!running.Entered()) {
        return false;
    }
    document = Require(Resource().DocumentProvider(), *this, Operation::Document).Document(request, response);
    return true;
}

void ResourceRouter::Match::UpdateDocument(const RequestInfo& request, const nlohmann::json& document) const
{
    const Running running(*call_);
    Require(Resource().DocumentProvider(), *this, Operation::UpdateDocument).UpdateDocument(request, document);
}

CreateResult ResourceRouter::Match::Create(const RequestInfo& request, const nlohmann::json& document) const
{
    const Running running(*call_);
    return Require(Resource().ParentProvider(), *this, Operation::Create).Create(request, document);
}

void ResourceRouter::Match::Delete(const RequestInfo& request) const
{
    const Running running(*call_);
    Require(Resource().ParentProvider(), *this, Operation::Delete).Delete(request);
}

nlohmann::json ResourceRouter::Match::Invoke(const RequestInfo& request, const nlohmann::json& args) const
{
    const Running running(*call_);
    return Require(Resource().CallableProvider(), *this, Operation::Invoke).Invoke(request, args);
}

}  // namespace VxRest
