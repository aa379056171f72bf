#pragma once
// The files in the user area of the local node's storage: job files, domain images, diagnosis copies.

#include <string>
#include <string_view>
#include <vector>

#include <VxApi/Location.h>
#include <VxCommon/TesselSystem/TesselSystem.h>
#include <VxCommon/VcLib/Export.h>

namespace VxCommon
{

/// Files have plain names without a directory. The characters :*?"<>| are forbidden in them; whatever else the storage
/// refuses (a "/", an empty name, ...) it refuses with a status of its own. Failures are thrown as Vx::Exception:
/// ERROR_PARAMETER for a forbidden character or a name that is too long to be written, ERROR_NOT_FOUND,
/// ERROR_ALREADY_EXISTS, else the platform's status. Not locked: its users serialise.
class VXCOMMON_API NodeStorage
{
public:
    /// The longest name that is written, in bytes.
    static constexpr std::size_t MaxFileNameLength = 150;

    /// `system` must outlive the object.
    explicit NodeStorage(TesselSystem& system) : system_(system) {}

    /// The file's bytes. Throws when it is missing or cannot be looked for; a file that goes away during the call reads
    /// as empty.
    std::vector<unsigned char> ReadFile(const std::string& name) const;

    /// Creates or replaces the file, all or nothing.
    void WriteFile(const std::string& name, const unsigned char* data, unsigned long long size);

    /// Throws when `source` is missing, when `target` exists, or when the storage cannot tell.
    void CopyFile(const std::string& source, const std::string& target);

    /// Keeps a copy of a file that could not be used as `name`.d01, .d02, ...: the first free number up to `maxCopies`,
    /// or that last one again when none is free, so that the oldest copies stay. Returns the copy's name. Nothing is
    /// written when `maxCopies` is 0, and the name is empty. When the storage cannot tell whether a number is free, its
    /// status is thrown and no copy is touched.
    std::string CopyForDiagnosis(const std::string& name, unsigned long long maxCopies);

    /// As CopyForDiagnosis, but the file itself gets the new name and is gone under its own. That needs neither room on
    /// the storage nor reading the file. ERROR_UNSUPPORTED from a storage that cannot do it.
    std::string MoveForDiagnosis(const std::string& name, unsigned long long maxCopies);

    void DeleteFile(const std::string& name);

    /// False when the file is not there. True also when the storage cannot tell; reading or sizing it throws why.
    bool FileExists(const std::string& name) const;

    /// As FileExists, but throws the storage's status, as from `location`, when the storage cannot tell.
    bool IsThere(const Vx::Location& location, const std::string& name) const;

    unsigned long long FileSize(const std::string& name) const;

    /// The names of the files with exactly this extension (without the "."), or of all files when it is empty, in the
    /// storage's order. An extension of 16 and more characters is never found.
    std::vector<std::string> ListFiles(const std::string& extension) const;

    /// False when a forbidden character occurs; the first one is logged. An empty name is fine.
    static bool IsFileNameValid(const std::string& name);
    static bool IsFileNameCharValid(char c);

    /// The text after the last "."; empty when there is none or it has 16 or more characters.
    static std::string GetExtension(const std::string& name);

    /// The name without its extension. Throws ERROR_CAPACITY from 256 characters on.
    static std::string StripExtension(const std::string& name);

    /// `name` + "." + `extension`.
    static std::string AppendExtension(const std::string& name, const std::string& extension);

    /// `text` without the leading and trailing characters that occur in `characters`.
    static std::string Trim(const std::string& text, const std::string& characters);

private:
    TesselLib::Storage& Storage() const;

    /// The name under which `name` is kept for diagnosis; empty when `maxCopies` is 0. Throws when it is missing.
    std::string DiagnosisName(const Vx::Location& location, const std::string& name,
                              unsigned long long maxCopies) const;

    TesselSystem& system_;
};

}  // namespace VxCommon
