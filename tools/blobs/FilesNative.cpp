#include "tools/blobs/Files.h"

#include <errno.h>
#include <string.h>

#include <sys/stat.h>
#include <unistd.h>

namespace Torvane::Blobs
{
FILE* OpenFile(const std::string& path, const char* mode)
{
    return fopen(path.c_str(), mode);
}

bool Exists(const std::string& path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

bool IsFolder(const std::string& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool IsDevice(const std::string& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

bool IsSameFile(const std::string& first, const std::string& second)
{
    struct stat firstStatus;
    struct stat secondStatus;
    return stat(first.c_str(), &firstStatus) == 0 && stat(second.c_str(), &secondStatus) == 0 &&
           firstStatus.st_dev == secondStatus.st_dev && firstStatus.st_ino == secondStatus.st_ino;
}

bool MoveFile(const std::string& from, const std::string& to, bool replace, std::string& reason)
{
    // Adds the new name and removes the old one: unlike rename, this never replaces a file.
    const bool isMoved = replace ? rename(from.c_str(), to.c_str()) == 0
                                 : link(from.c_str(), to.c_str()) == 0 && unlink(from.c_str()) == 0;
    if (!isMoved)
    {
        reason = strerror(errno);
    }
    return isMoved;
}

void RemoveFile(const std::string& path)
{
    unlink(path.c_str());
}

unsigned long CurrentProcess()
{
    return static_cast<unsigned long>(getpid());
}
} // namespace Torvane::Blobs
