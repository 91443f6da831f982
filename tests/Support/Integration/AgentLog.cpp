#include "tests/Support/Integration/AgentLog.h"

#include "tests/Support/Files.h"

#include <algorithm>
#include <stdlib.h>

#include <objbase.h>
#include <shlobj.h>

namespace Torvane::Testing
{
namespace
{
constexpr char separator[] = " | ";

std::wstring LogFolder()
{
    const GUID localApplicationData = {
        0xF1B32785, 0x6FBA, 0x4FCF, {0x9D, 0x55, 0x7B, 0x8E, 0x7F, 0x15, 0x70, 0x91}};
    wchar_t* path = nullptr;
    if (SHGetKnownFolderPath(localApplicationData, 0, nullptr, &path) != S_OK)
    {
        return {};
    }
    const std::wstring folder = path;
    CoTaskMemFree(path);
    return folder + L"\\Torvane 2\\Logs";
}

/// Takes the text before the next separator off the front of `rest`.
bool TakeField(std::string& rest, std::string& field)
{
    const size_t end = rest.find(separator);
    if (end == std::string::npos)
    {
        return false;
    }
    field = rest.substr(0, end);
    field.erase(0, field.find_first_not_of(' '));
    rest.erase(0, end + sizeof(separator) - 1);
    return true;
}

bool ParseRecord(const std::string& line, LogRecord& record)
{
    std::string rest = line;
    std::string time;
    if (!TakeField(rest, time) || !TakeField(rest, record.tag) || record.tag.size() != 3 ||
        !TakeField(rest, record.position))
    {
        return false;
    }
    char* end = nullptr;
    record.time = strtod(time.c_str(), &end);
    record.message = rest;
    return end != time.c_str() && *end == '\0';
}
} // namespace

std::wstring AgentLogPath(unsigned long processId)
{
    return LogFolder() + L"\\log_windows_agent_" + std::to_wstring(processId) + L".txt";
}

std::string ReadAgentLogText(unsigned long processId)
{
    return ReadWholeFile(AgentLogPath(processId));
}

std::vector<LogRecord> ParseAgentLog(const std::string& text)
{
    std::vector<LogRecord> records;
    size_t begin = 0;
    while (begin < text.size())
    {
        size_t end = text.find("\r\n", begin);
        end = end == std::string::npos ? text.size() : end;
        const std::string line = text.substr(begin, end - begin);
        LogRecord record;
        if (ParseRecord(line, record))
        {
            records.push_back(record);
        }
        else if (!records.empty())
        {
            records.back().message += "\r\n" + line;
        }
        begin = end + 2;
    }
    return records;
}

std::vector<LogRecord> WithoutHeapSearch(std::vector<LogRecord> records)
{
    const auto begins = [](const LogRecord& record, const std::string& text) {
        return record.message.compare(0, text.size(), text) == 0;
    };
    bool searching = false;
    const auto isOfSearch = [&](const LogRecord& record) {
        const bool read =
            searching && begins(record, "Call to function NtReadVirtualMemory failed. Error: 0x");
        const bool end = searching && (begins(record, "Found process heap critical section at 0x") ||
                                       begins(record, "Failed to find process heap critical section"));
        searching = begins(record, "Found loader lock at 0x") || (searching && !end);
        return read || end;
    };
    records.erase(std::remove_if(records.begin(), records.end(), isOfSearch), records.end());
    return records;
}

void MakeAgentLogFolder()
{
    const std::wstring folder = LogFolder();
    CreateDirectoryW(folder.substr(0, folder.find_last_of(L'\\')).c_str(), nullptr);
    CreateDirectoryW(folder.c_str(), nullptr);
}
} // namespace Torvane::Testing
