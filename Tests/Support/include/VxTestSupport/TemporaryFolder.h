#pragma once
// An empty folder under the system's temporary folder, removed with all its content at the end of its life.

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace VxTestSupport
{

class TemporaryFolder
{
public:
    /// Throws std::system_error when the folder cannot be made.
    TemporaryFolder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "vxcommon-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), pattern);
        }
        path_ = pattern;
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& Path() const { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace VxTestSupport
