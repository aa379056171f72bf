#pragma once
// A persistence handler and a host's system that write down what happens to them, and what calls throw as text.

#include <functional>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include <VxApi/Exception.h>
#include <VxCommon/Persistence/IPersistHandler.h>
#include <VxCommon/System/IUpdatableSystem.h>
#include <VxTestSupport/LogCapture.h>
#include <VxTestSupport/Thrown.h>

namespace VxCommon
{

using VxTestSupport::MessageThrown;
using VxTestSupport::PlaceThrown;

using Journal = std::vector<std::string>;
using Bytes = std::vector<unsigned char>;

inline Bytes ToBytes(const std::string& text)
{
    return {text.begin(), text.end()};
}

/// Keeps one text a domain as the item "/<display name>". Each call goes into the journal ("A: Save JOB"), then what
/// `on` holds for it ("Save JOB") is run, which may throw.
class FakeHandler final : public IPersistHandler
{
public:
    FakeHandler(std::string displayName, Journal& journal) : displayName_(std::move(displayName)), journal_(journal) {}

    std::string DisplayName() const override
    {
        if (displayName_.empty()) {
            throw std::runtime_error("nameless");
        }
        return displayName_;
    }
    void Init(PersistDomain domain, IPersistStore& store) override
    {
        Enter("Init ", domain);
        values[domain] = "factory";
        Write(domain, store);
    }
    void Load(PersistDomain domain, IPersistStore& store) override
    {
        Enter("Load ", domain);
        const auto bytes = store.Read(Path());
        values[domain].assign(bytes.begin(), bytes.end());
    }
    void Save(PersistDomain domain, IPersistStore& store) override
    {
        Enter("Save ", domain);
        Write(domain, store);
    }

    std::string Path() const { return "/" + displayName_; }

    std::map<PersistDomain, std::string> values;
    std::map<std::string, std::function<void()>> on;

private:
    void Enter(const char* verb, PersistDomain domain)
    {
        const std::string call = verb + PersistDomain_Name(domain);
        journal_.push_back(displayName_ + ": " + call);
        if (const auto action = on.find(call); action != on.end() && action->second) {
            const std::function<void()> run = action->second;  // It may replace itself.
            run();
        }
    }
    void Write(PersistDomain domain, IPersistStore& store)
    {
        const Bytes bytes = ToBytes(values[domain]);
        store.Write(Path(), bytes.data(), bytes.size());
    }

    std::string displayName_;
    Journal& journal_;
};

/// Writes its updates into the journal.
class FakeUpdatable final : public IUpdatableSystem
{
public:
    explicit FakeUpdatable(Journal& journal) : journal_(journal) {}
    void BeginUpdate(bool flag) override { journal_.emplace_back(flag ? "Begin(true)" : "Begin(false)"); }
    void EndUpdate() override { journal_.emplace_back("End"); }

private:
    Journal& journal_;
};

/// An action that fails with a status and a message.
inline std::function<void()> Fails(Nucleo::Status status, const std::string& message)
{
    return [=] { throw Vx::Exception({"Host/Part", 1, "Host::Part::Do"}, status, message); };
}

/// The place in short for the classes of the persistence: "<status> <Class>::<function>".
template <class Call>
std::string Thrown(Call&& call)
{
    static const std::regex place(" Persistence/(\\w+) VxCommon::\\1::");
    return std::regex_replace(PlaceThrown(call), place, " $1::");
}

/// The captured lines as "<source>: <severity> <text>", public ones marked "!"; of `source`, if given, as "<severity>
/// <text>", with the public ones. Without exceptions and back traces, and without the store's lines about overwriting.
inline Journal LogOf(const VxTestSupport::ScopedLogCapture& log, const std::string& source = {})
{
    Journal lines;
    for (const VxTestSupport::LogLine& line : log.Lines()) {
        const bool shown = (line.options & Nucleo::LogOption::Public) != 0;
        if (line.text.starts_with("Exception -") || line.text.starts_with("Exception: ") ||
            line.text.starts_with("  #") || line.source == "Persistence/PersistStore" ||
            (!source.empty() && !shown && line.source != source)) {
            continue;
        }
        const std::string where = shown ? "!" + line.source + ": " : source.empty() ? line.source + ": " : "";
        lines.push_back(where + "IWEI"[line.options & Nucleo::LogOption::SeverityMask] + " " + line.text);
    }
    return lines;
}

}  // namespace VxCommon
