#include "Agent/Modules/Windows/ExecutableIdentity.h"

namespace Torvane
{
ExecutableIdentity ReadExecutableIdentity(const ImageFile& image)
{
    ExecutableIdentity identity = {};
    identity.fileSize = GetImageFileSize(image);
    ReadImageHeaders(image, identity.fileHeader, identity.optionalHeader);
    return identity;
}
} // namespace Torvane
