// Any order of changes: a log ring holds the newest of what a list of ids and texts holds, without gaps, and tells each
// change once.

#include <deque>
#include <string>
#include <vector>

#include <VxCommon/Logger/VcLog.h>

#include "FuzzSupport.h"

using namespace Nucleo::Statuses;

namespace
{

constexpr std::uint64_t capacity = 4096;

struct Entry
{
    std::uint32_t id;
    std::string text;
    std::vector<std::string> arguments;
};

Nucleo::Status Collect(void* receiver, void* /*sender*/, void* args)
{
    static_cast<std::vector<VcLogChangeArgs>*>(receiver)->push_back(*static_cast<VcLogChangeArgs*>(args));
    return OK;
}

/// What fell out of the ring falls out of the list.
void Compare(const VcLog& log, std::deque<Entry>& entries, std::uint32_t nextId)
{
    const std::size_t count = VcLog_Count(&log);
    Require(count <= entries.size() && VcLog_FirstId(&log) == nextId - count && VcLog_NextId(&log) == nextId);
    Require(VcLog_Used(&log) <= std::int64_t{capacity} && (VcLog_Used(&log) == 0) == (count == 0));
    entries.erase(entries.begin(), entries.end() - std::ptrdiff_t(count));
    for (std::size_t i = 0; i < count; ++i) {
        const VcLogMsg* msg = VcLog_At(&log, i);
        Require(VcLogMsg_Id(msg) == entries[i].id && VcLogMsg_Text(msg) == entries[i].text);
        Require(VcLogMsg_Length(msg) == entries[i].text.size());
        const VcLogMsgArg* arg = VcLogMsg_FirstArg(msg);
        for (const std::string& text : entries[i].arguments) {
            Require(arg != nullptr && VcLogMsg_ArgText(msg, arg) == text);
            arg = VcLogMsg_NextArg(msg, arg);
        }
        Require(arg == nullptr);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Nucleo::Handle<VcLog> owner;
    std::vector<VcLogChangeArgs> changes;
    Require(VcLog_Construct(owner.Receive(), capacity, nullptr) == OK);
    VcLog* log = owner.Get();
    Require(VcLog_ChangeEvent(log)->Add(&Collect, &changes) == OK);
    std::deque<Entry> entries;
    std::uint32_t nextId = 1;
    for (Choices choices(data, size); !choices.Empty();) {
        const std::uint8_t choice = choices.Byte();
        const auto letter = static_cast<char>('a' + choice % 26);
        std::size_t expected = 1;  // Changes that are told.
        if (choice == 0xff) {
            Require(VcLog_Clear(log) == OK);
            entries.clear();
        } else if (choice >= 0xa0 && !entries.empty()) {
            // To the newest entry or to any: it may go for its argument, with those before it.
            const std::size_t number = choices.Byte();
            const std::size_t index = number < 128 ? entries.size() - 1 : number % entries.size();
            const std::string text(choices.Byte() % 64, letter);
            const auto* type = &Nucleo::StringType;
            const Nucleo::Status status = number < 128 ? VcLog_AddArgument(log, text.c_str(), type)
                                                       : VcLogMsg_AddArgument(VcLog_At(log, index), text.c_str(), type);
            Require(status == (VcLog_Count(log) < entries.size() - index ? ERROR_MEMORY : OK));
            entries[index].arguments.insert(entries[index].arguments.end(), status == OK ? 1 : 0, text);
            expected = 0;
        } else {
            // Mostly short, now and then too long for ever: then the ring empties itself, and no id is used up.
            const std::string text(choice % 64 == 0 ? choices.Word() % (2 * capacity) : choices.Byte() * 2, letter);
            const Nucleo::LogArgs record{2, 1, 2, "Source", text.c_str()};
            const Nucleo::Status status = choice % 2 != 0 ? VcLog_InsertLogArgs(log, 7, &record)
                                                          : VcLog_Insert(log, 7, 1, VcLogMsgType_Warning, text.c_str());
            expected = status == OK ? 1 : 0;
            Require(expected == 1 || (status == ERROR_MEMORY && text.size() > capacity / 2 && VcLog_Count(log) == 0));
            entries.insert(entries.end(), expected, {nextId, text, {}});
            nextId += std::uint32_t(expected);
        }
        Compare(*log, entries, nextId);
        Require(changes.size() == expected);
        Require(expected == 0 || (changes[0].cleared == (choice == 0xff ? 1 : 0) &&
                                  changes[0].firstId == VcLog_FirstId(log) && changes[0].lastId == nextId - 1));
        changes.clear();
    }
    return 0;
}
