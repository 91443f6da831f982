#include "tools/blobs/Files.h"

#include <errno.h>
#include <string.h>

namespace Torvane::Blobs
{
namespace
{
constexpr char existsAlready[] = "it exists already (--force replaces it)";
}

bool ReadFile(const std::string& path, std::string& content, std::string& reason)
{
    if (IsFolder(path))
    {
        reason = "it is a folder";
        return false;
    }
    FILE* file = OpenFile(path, "rb");
    if (file == nullptr)
    {
        reason = strerror(errno);
        return false;
    }
    content.clear();
    char buffer[65536];
    size_t count;
    while ((count = fread(buffer, 1, sizeof(buffer), file)) != 0)
    {
        content.append(buffer, count);
    }
    const bool failed = ferror(file) != 0;
    if (failed)
    {
        reason = strerror(errno);
    }
    fclose(file);
    return !failed;
}

bool WriteFile(const std::string& path, const std::string& content, bool replace, std::string& reason)
{
    if (!replace && Exists(path))
    {
        reason = existsAlready;
        return false;
    }
    if (IsFolder(path))
    {
        reason = "it is a folder";
        return false;
    }
    const std::string part = path + "." + std::to_string(CurrentProcess()) + ".part";
    FILE* file = OpenFile(part, "wbx");
    if (file == nullptr)
    {
        reason = strerror(errno);
        return false;
    }
    bool isWritten = fwrite(content.data(), 1, content.size(), file) == content.size();
    isWritten = fflush(file) == 0 && isWritten;
    if (!isWritten)
    {
        reason = strerror(errno);
    }
    if (fclose(file) != 0 && isWritten)
    {
        reason = strerror(errno);
        isWritten = false;
    }
    isWritten = isWritten && MoveFile(part, path, replace, reason);
    if (!isWritten)
    {
        RemoveFile(part);
    }
    return isWritten;
}
} // namespace Torvane::Blobs
