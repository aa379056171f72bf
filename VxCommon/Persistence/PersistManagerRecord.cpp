// The persist record, which keeps the default job's name; it reports as the manager's own file.
#define VX_FILE_TAG "Persistence/PersistManager"

#include <Nucleo/XmlDocument.h>
#include <VxApi/Exception.h>
#include <VxApi/Locker.h>
#include <VxApi/Logging.h>
#include <VxCommon/Persistence/PersistManager.h>

namespace VxCommon
{

const char* const PersistManager::PERSIST_RECORD_FILE = "PersistRecord.xml";

void PersistManager::Init()
{
    const Vx::Locker locker(lock_);
    loadedJob_.clear();
    defaultJob_.clear();
    jobModified_ = false;
    LoadPersistRecord();
    Follow();
}

void PersistManager::InitWithoutRecord(const std::exception& reason)
{
    const Vx::Locker locker(lock_);
    loadedJob_.clear();
    defaultJob_.clear();
    jobModified_ = false;
    recordTrouble_ = FileTrouble{PERSIST_RECORD_FILE, reason.what(),
                                 MayPass(reason) || Vx::StatusOf(reason) == ERROR_ACCESS, true, ""};
    try {
        recordTrouble_->keptAs = SetAside(PERSIST_RECORD_FILE);
        recordTrouble_->held = false;
        recordUnwritten_ = true;
        RetryRecord();
    } catch (const std::exception& exception) {
        Vx_Debug_Log(Error, "File '%s' could not be set aside (%s).", PERSIST_RECORD_FILE, exception.what());
    }
    Follow();
}

void PersistManager::LoadPersistRecord()
{
    const Vx::Locker locker(lock_);
    if (!storage_.IsThere(VX_HERE, PERSIST_RECORD_FILE)) {
        Vx_Debug_Log(Warning, "No %s exists, creating...", PERSIST_RECORD_FILE);
        defaultJob_.clear();
        recordUnwritten_ = true;
        RetryRecord();
        return;
    }
    const Bytes bytes = storage_.ReadFile(PERSIST_RECORD_FILE);
    Nucleo::XmlDocument document;
    VX_CHECK(document.Parse(std::string(bytes.begin(), bytes.end())));
    const Nucleo::XmlNode defaultJob = document.Child(document.Root(), "DefaultJob");
    if (!defaultJob) {
        VX_THROW(ERROR_NOT_FOUND, "%s has no element \"DefaultJob\".", PERSIST_RECORD_FILE);
    }
    defaultJob_ = document.Text(defaultJob);
    recordTrouble_.reset();
    recordUnwritten_ = false;
}

void PersistManager::SavePersistRecord()
{
    const Vx::Locker locker(lock_);
    const std::string text = RecordText(defaultJob_);
    if (recordTrouble_ && recordTrouble_->held) {
        ReleaseHeld(recordTrouble_);
        recordUnwritten_ = true;
    }
    WriteFile(PERSIST_RECORD_FILE, {text.begin(), text.end()});
    recordUnwritten_ = false;
}

bool PersistManager::RetryRecord() noexcept
{
    if (!recordUnwritten_ && !(recordTrouble_ && recordTrouble_->held)) {
        return true;
    }
    try {
        SavePersistRecord();
        return true;
    } catch (const std::exception& exception) {
        Vx_Debug_Log(Warning, "%s cannot be written yet (%s).", PERSIST_RECORD_FILE, exception.what());
    } catch (...) {
        Vx_Debug_Log(Warning, "%s cannot be written yet (unknown exception).", PERSIST_RECORD_FILE);
    }
    return false;
}

bool PersistManager::IsRecordUnwritten() const
{
    const Vx::Locker locker(lock_);
    return recordUnwritten_;
}

std::string PersistManager::RecordText(const std::string& defaultJob)
{
    Nucleo::XmlDocument document;
    const Nucleo::XmlNode root = document.CreateRoot("PersistRecord");
    const Nucleo::XmlNode element = document.AddChild(root, "DefaultJob");
    VX_CHECK(document.SetText(element, defaultJob));
    if (document.Text(element) != defaultJob) {
        VX_THROW(ERROR_PARAMETER, "Job '%s' cannot be the default job: the persist record cannot keep its name.",
                 defaultJob);
    }
    return document.ToText();
}

}  // namespace VxCommon
