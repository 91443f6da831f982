#include "tests/Support/Integration/RawPipe.h"

#include "Agent/Protocol/Blob.h"
#include "tests/Support/Wait.h"

#include <string.h>
#include <string>

namespace Torvane::Testing
{
RawPipe::RawPipe(const wchar_t* prefix, uint32_t hostProcessId)
{
    const std::wstring path = prefix + std::to_wstring(hostProcessId);
    WaitUntil([&] {
        pipe = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        return pipe != INVALID_HANDLE_VALUE;
    });
    DWORD mode = PIPE_READMODE_MESSAGE | PIPE_WAIT;
    SetNamedPipeHandleState(pipe, &mode, nullptr, nullptr);
}

RawPipe::~RawPipe()
{
    Close();
}

RawPipe::operator bool() const
{
    return pipe != INVALID_HANDLE_VALUE;
}

std::vector<uint8_t> RawPipe::Read(size_t size)
{
    std::vector<uint8_t> bytes(size);
    size_t done = 0;
    while (done < size && WaitForBytes(1))
    {
        DWORD count = 0;
        if (!ReadFile(pipe, bytes.data() + done, static_cast<DWORD>(size - done), &count, nullptr) &&
            GetLastError() != ERROR_MORE_DATA)
        {
            break;
        }
        done += count;
    }
    bytes.resize(done);
    return bytes;
}

std::vector<uint8_t> RawPipe::ReadBlob()
{
    std::vector<uint8_t> bytes = Read(sizeof(BlobHeader));
    if (bytes.size() != sizeof(BlobHeader))
    {
        return {};
    }
    BlobHeader header;
    memcpy(&header, bytes.data(), sizeof(header));
    const std::vector<uint8_t> payload = Read(header.size);
    if (payload.size() != header.size)
    {
        return {};
    }
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

std::vector<uint8_t> RawPipe::ReadMessage(size_t size)
{
    std::vector<uint8_t> bytes(size);
    DWORD count = 0;
    const BOOL read = ReadFile(pipe, bytes.data(), static_cast<DWORD>(size), &count, nullptr);
    bytes.resize(read ? count : 0);
    return bytes;
}

bool RawPipe::Write(const std::vector<uint8_t>& message)
{
    DWORD count = 0;
    return WriteFile(pipe, message.data(), static_cast<DWORD>(message.size()), &count, nullptr) &&
           count == message.size();
}

bool RawPipe::WaitForBytes(size_t size) const
{
    DWORD available = 0;
    WaitUntil(
        [&] { return !PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr) || available >= size; });
    return available >= size;
}

void RawPipe::Close()
{
    if (pipe != INVALID_HANDLE_VALUE)
    {
        CloseHandle(pipe);
        pipe = INVALID_HANDLE_VALUE;
    }
}
} // namespace Torvane::Testing
