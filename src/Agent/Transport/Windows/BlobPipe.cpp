#include "Agent/Transport/Windows/BlobPipe.h"

#include "Shared/Foundation/Windows/ResultOS.h"

namespace Torvane
{
namespace
{
constexpr DWORD bufferSize = 0x20000;
}

Result<HANDLE> CreateBlobPipe(const wchar_t* prefix, const FixedWideString& identifier)
{
    FixedWideString name = {};
    name.Format(L"%ls%ls", prefix, identifier.text);
    const HANDLE pipe =
        CreateNamedPipeW(name.text, PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT,
                         PIPE_UNLIMITED_INSTANCES, bufferSize, bufferSize, 0, nullptr);
    if (pipe == INVALID_HANDLE_VALUE)
    {
        return MakeOSError("CreateNamedPipeW failed.");
    }
    return Success(pipe);
}

void FlushAndDisconnect(HANDLE pipe)
{
    FlushFileBuffers(pipe);
    DisconnectNamedPipe(pipe);
}

void ClosePipe(HANDLE& pipe)
{
    if (pipe != INVALID_HANDLE_VALUE)
    {
        CloseHandle(pipe);
        pipe = INVALID_HANDLE_VALUE;
    }
}

Result<uint32_t> WriteExact(HANDLE pipe, const void* bytes, uint32_t size)
{
    uint32_t written = 0;
    while (written < size)
    {
        DWORD count = 0;
        if (!WriteFile(pipe, static_cast<const uint8_t*>(bytes) + written, size - written, &count, nullptr))
        {
            return MakeOSError("WriteFile() failed.");
        }
        written += count;
    }
    return Success(written);
}

Result<uint32_t> ReadExact(HANDLE pipe, void* buffer, uint32_t size)
{
    uint32_t read = 0;
    while (read < size)
    {
        DWORD count = 0;
        // A read of less than a whole message fails with ERROR_MORE_DATA: so a header is read apart from its payload.
        if (!ReadFile(pipe, static_cast<uint8_t*>(buffer) + read, size - read, &count, nullptr) &&
            GetLastError() != ERROR_MORE_DATA)
        {
            return MakeOSError("ReadFile() failed.");
        }
        read += count;
    }
    return Success(read);
}
} // namespace Torvane
