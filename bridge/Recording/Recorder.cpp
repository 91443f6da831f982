#include "bridge/Recording/Recorder.h"

#include "bridge/Recording/RecordingLines.h"

#include <memory>
#include <stdio.h>

#include <windows.h>

namespace Torvane::Bridge
{
namespace
{
constexpr uint32_t mostNumberedFiles = 10000;

std::string CurrentTimeString()
{
    SYSTEMTIME time;
    GetSystemTime(&time);
    char text[40];
    snprintf(text, sizeof(text), "%04u-%02u-%02uT%02u:%02u:%02u.%03uZ", time.wYear, time.wMonth, time.wDay,
             time.wHour, time.wMinute, time.wSecond, time.wMilliseconds);
    return text;
}

/// Other programs can read the file while it is written.
HANDLE CreateNewFile(const std::wstring& path)
{
    return CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

/// The offset of the file's name in a path; the path's length if there is none.
size_t FileNameOffset(const std::wstring& path)
{
    return path.find_last_of(L"/\\:") + 1; // npos + 1 is 0
}

/// "reload.2.jsonl" for "reload.jsonl".
std::wstring NumberedPath(const std::wstring& path, uint32_t number)
{
    const size_t name = FileNameOffset(path);
    const size_t dot = path.find_last_of(L'.');
    const size_t end = dot == std::wstring::npos || dot <= name ? path.size() : dot;
    return path.substr(0, end) + L"." + std::to_wstring(number) + path.substr(end);
}

/// A recording file, shared by the links that it records.
class Recorder
{
public:
    /// \param newFile INVALID_HANDLE_VALUE for a recorder that does nothing.
    explicit Recorder(HANDLE newFile)
        : file(newFile)
    {
        QueryPerformanceCounter(&startTime);
        RecordingHeader header;
        header.bridgeProcessId = GetCurrentProcessId();
        header.startedAt = CurrentTimeString();
        Write(RecordingHeaderLine(header));
    }

    ~Recorder()
    {
        CloseFile();
    }

    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    bool IsWriting() const
    {
        return file != INVALID_HANDLE_VALUE;
    }

    void Record(const Message& message, uint32_t hostProcessId, double linkCreationTime)
    {
        RecordedBlob blob;
        blob.time = linkCreationTime + message.Time();
        blob.hostProcessId = hostProcessId;
        blob.direction = message.From();
        blob.bytes = message.Bytes();
        AcquireSRWLockExclusive(&lock);
        blob.number = ++count;
        Write(RecordedBlobLine(blob));
        ReleaseSRWLockExclusive(&lock);
    }

    double Now() const
    {
        LARGE_INTEGER now;
        LARGE_INTEGER frequency;
        QueryPerformanceCounter(&now);
        QueryPerformanceFrequency(&frequency);
        return static_cast<double>(now.QuadPart - startTime.QuadPart) /
               static_cast<double>(frequency.QuadPart);
    }

private:
    void Write(const std::string& line)
    {
        size_t done = 0;
        while (IsWriting() && done < line.size())
        {
            DWORD written = 0;
            if (!WriteFile(file, line.data() + done, static_cast<DWORD>(line.size() - done), &written,
                           nullptr))
            {
                CloseFile();
            }
            done += written;
        }
    }

    void CloseFile()
    {
        if (IsWriting())
        {
            CloseHandle(file);
            file = INVALID_HANDLE_VALUE;
        }
    }

    SRWLOCK lock = SRWLOCK_INIT;
    HANDLE file;
    LARGE_INTEGER startTime = {};
    uint64_t count = 0;
};

void Attach(const std::shared_ptr<Recorder>& recorder, Link& link)
{
    const uint32_t hostProcessId = link.HostProcessId();
    const double creationTime = recorder->Now() - link.Now();
    link.Observe([recorder, hostProcessId, creationTime](const Message& message) {
        recorder->Record(message, hostProcessId, creationTime);
    });
}
} // namespace

bool RecordLink(Link& link, const std::wstring& path)
{
    const auto recorder = std::make_shared<Recorder>(CreateNewFile(path));
    if (recorder->IsWriting())
    {
        Attach(recorder, link);
    }
    return recorder->IsWriting();
}

bool RecordEveryLink(const std::wstring& path)
{
    if (FileNameOffset(path) == path.size())
    {
        return false;
    }
    HANDLE file = CreateNewFile(path);
    for (uint32_t number = 2;
         file == INVALID_HANDLE_VALUE && GetLastError() == ERROR_FILE_EXISTS && number <= mostNumberedFiles;
         ++number)
    {
        file = CreateNewFile(NumberedPath(path, number));
    }
    const auto recorder = std::make_shared<Recorder>(file);
    if (recorder->IsWriting())
    {
        Link::OnEveryLink([recorder](Link& link) { Attach(recorder, link); });
    }
    return recorder->IsWriting();
}

bool RecordEveryLinkIfRequested()
{
    std::wstring path(32768, L'\0');
    path.resize(
        GetEnvironmentVariableW(L"TORVANE_BRIDGE_RECORDING", path.data(), static_cast<DWORD>(path.size())));
    return path.empty() || RecordEveryLink(path);
}
} // namespace Torvane::Bridge
