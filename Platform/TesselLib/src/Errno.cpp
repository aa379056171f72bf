#include "src/Errno.h"

#include <cerrno>

namespace TesselLib
{

Nucleo::Status StatusOfErrno(int error) noexcept
{
    struct Meaning
    {
        int error;
        Nucleo::Status status;
    };
    static constexpr Meaning meanings[] = {
        {ENOENT, Nucleo::ERROR_NOT_FOUND},
        {ENOSPC, Nucleo::ERROR_DISK_FULL},
        {EDQUOT, Nucleo::ERROR_DISK_FULL},
        {EFBIG, Nucleo::ERROR_DISK_FULL},  // the process's own limit, or the file system's
        {EROFS, Nucleo::ERROR_READ_ONLY},
        {EMFILE, Nucleo::ERROR_TOO_MANY_FILES},
        {ENFILE, Nucleo::ERROR_TOO_MANY_FILES},
        {EACCES, Nucleo::ERROR_ACCESS},
        {EPERM, Nucleo::ERROR_ACCESS},
        {ELOOP, Nucleo::ERROR_ACCESS},  // a link where none is followed
        {ENOTDIR, Nucleo::ERROR_ACCESS},
        {EISDIR, Nucleo::ERROR_ACCESS},
        {EEXIST, Nucleo::ERROR_ACCESS},  // something that is no folder stands where one is needed
        {ENXIO, Nucleo::ERROR_ACCESS},   // a pipe or socket without anyone at its other end
        {ENAMETOOLONG, Nucleo::ERROR_NAME},
        {EILSEQ, Nucleo::ERROR_NAME},
        {EINVAL, Nucleo::ERROR_NAME},  // a character that this file system cannot keep
        {ENOMEM, Nucleo::ERROR_MEMORY},
        {EWOULDBLOCK, Nucleo::ERROR_BUSY},
        {EBUSY, Nucleo::ERROR_BUSY},
    };
    for (const Meaning& meaning : meanings) {
        if (meaning.error == error) {
            return meaning.status;
        }
    }
    return Nucleo::ERROR_IO;
}

}  // namespace TesselLib
