#include "tools/doctor/AgentLog.h"

#include "bridge/Text.h"
#include "tools/doctor/Folders.h"
#include "tools/doctor/LogTexts.h"

#include <algorithm>
#include <vector>
#include <windows.h>

#include <shlobj.h>

namespace Torvane::Doctor
{
namespace
{
using Bridge::Utf8;

/// More of the newest lines than this would bury the rest.
constexpr size_t mostLines = 10;

constexpr char separator[] = " | "; // between time, level, position and text of a line

std::wstring GetLocalApplicationData()
{
    wchar_t* path = nullptr;
    SHGetKnownFolderPath(FOLDERID_LocalAppData, 0, nullptr, &path);
    std::wstring folder = path != nullptr ? path : L"";
    CoTaskMemFree(path);
    return folder;
}

/// \return the OS's error code, 0 for success.
uint32_t MakeFolders(const std::wstring& folder)
{
    CreateDirectoryW(FolderOf(folder).c_str(), nullptr);
    return CreateDirectoryW(folder.c_str(), nullptr) ? 0 : GetLastError();
}

/// An Agent that still runs has the file open for writing. \return the OS's error code, 0 for success.
uint32_t ReadLog(const std::wstring& path, std::string& log)
{
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        return GetLastError();
    }
    log.resize(GetFileSize(file, nullptr));
    DWORD read = 0;
    const BOOL wasRead = ReadFile(file, log.data(), static_cast<DWORD>(log.size()), &read, nullptr);
    const DWORD error = wasRead ? 0 : GetLastError();
    CloseHandle(file);
    log.resize(read);
    return error;
}

/// \return the text of an Error or Panic line; empty for another line.
std::string TextOfFailure(const std::string& line)
{
    const size_t level = line.find(separator);
    if (level == std::string::npos)
    {
        return "";
    }
    const std::string levelAndRest = line.substr(level + sizeof(separator) - 1);
    const bool isFailure =
        levelAndRest.compare(0, 6, "ERR | ") == 0 || levelAndRest.compare(0, 6, "PNC | ") == 0;
    const size_t text = isFailure ? levelAndRest.find(separator, 6) : std::string::npos;
    return text == std::string::npos ? "" : levelAndRest.substr(text + sizeof(separator) - 1);
}

/// The texts of all Error and Panic lines, each once, in the order in which they came last.
std::vector<std::string> FindFailures(const std::string& log)
{
    std::vector<std::string> texts;
    for (size_t start = 0; start < log.size();)
    {
        const size_t end = std::min(log.find('\n', start), log.size());
        std::string text = TextOfFailure(log.substr(start, end - start));
        while (!text.empty() && (text.back() == '\r' || text.back() == ' '))
        {
            text.pop_back();
        }
        if (!text.empty())
        {
            texts.erase(std::remove(texts.begin(), texts.end(), text), texts.end());
            texts.push_back(text);
        }
        start = end + 1;
    }
    return texts;
}
} // namespace

std::wstring CheckLogFolder(bool makes, Report& report)
{
    const std::wstring parent = GetLocalApplicationData();
    if (parent.empty())
    {
        report.Add(Finding::LogFolderUnknown);
        return L"";
    }
    std::wstring folder = parent + L"\\Torvane 2\\Logs";
    if (IsThere(folder))
    {
        report.Add(Finding::LogFolderOk, {Utf8(folder)});
    }
    else if (!makes)
    {
        report.Add(Finding::LogFolderMissing, {Utf8(folder)});
    }
    else if (const uint32_t error = MakeFolders(folder))
    {
        report.Add(Finding::LogFolderNotMade, {Utf8(folder), ErrorText(error)});
    }
    else
    {
        report.Add(Finding::LogFolderMade, {Utf8(folder)});
    }
    return folder;
}

std::wstring FindNewestLog(const std::wstring& logFolder)
{
    std::wstring newest;
    FILETIME time = {};
    WIN32_FIND_DATAW found = {};
    const HANDLE search = FindFirstFileW((logFolder + L"\\log_windows_agent_*.txt").c_str(), &found);
    for (BOOL isFound = search != INVALID_HANDLE_VALUE; isFound; isFound = FindNextFileW(search, &found))
    {
        if (newest.empty() || CompareFileTime(&found.ftLastWriteTime, &time) > 0)
        {
            newest = logFolder + L"\\" + found.cFileName;
            time = found.ftLastWriteTime;
        }
    }
    if (search != INVALID_HANDLE_VALUE)
    {
        FindClose(search);
    }
    return newest;
}

std::wstring FindLogOf(const std::wstring& logFolder, uint32_t processId)
{
    const std::wstring path = logFolder + L"\\log_windows_agent_" + std::to_wstring(processId) + L".txt";
    return IsThere(path) ? path : L"";
}

void ReportLog(const std::wstring& path, Report& report)
{
    std::string log;
    const uint32_t error = path.empty() ? 0 : ReadLog(path, log);
    if (path.empty() || error != 0)
    {
        report.Add(error != 0 ? Finding::LogNotRead : Finding::LogMissing, {Utf8(path), ErrorText(error)});
        return;
    }
    const std::vector<std::string> texts = FindFailures(log);
    if (texts.empty())
    {
        report.Add(Finding::LogClean, {Utf8(path)});
    }
    for (size_t i = texts.size() - std::min(texts.size(), mostLines); i < texts.size(); ++i)
    {
        const Explanation* explanation = ExplainLogText(texts[i]);
        if (explanation != nullptr)
        {
            report.Add(explanation->isHarmless ? Finding::LogLineHarmless : Finding::LogLine,
                       {Utf8(path), texts[i], explanation->meaning, explanation->remedy});
        }
        else
        {
            report.Add(Finding::LogLineUnknown, {Utf8(path), texts[i]});
        }
    }
}
} // namespace Torvane::Doctor
