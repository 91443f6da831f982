#pragma once

/// \file
/// The log file that the Agent of this process writes, read back; any thread.

#include <string>
#include <vector>

namespace Torvane::Testing
{
/// One record, "\r\n%9.2f | %hs | %43s | %.*s" with the position as file(line).
struct LogRecord
{
    double time;          ///< seconds since the Agent's startup
    std::string tag;      ///< three letters
    std::string position; ///< as in "Sender.cpp(57)"
    std::string message;  ///< may hold line breaks
};

/// The log file of an Agent in the process of that id, whether or not it exists.
std::wstring AgentLogPath(unsigned long processId);

/// The whole file as it is now, which the Agent may be writing. Empty if there is none.
std::string ReadAgentLogText(unsigned long processId);

/// The records of a log file's text, in the order of the file.
std::vector<LogRecord> ParseAgentLog(const std::string& text);

/// Leaves out what the search for the process heap's lock has logged as its outcome. That depends on the OS: the lock is
/// found only if a heap's undocumented header has the layout that the Agent knows.
std::vector<LogRecord> WithoutHeapSearch(std::vector<LogRecord> records);

/// Makes the folder of the log files, which the Agent doesn't.
void MakeAgentLogFolder();
} // namespace Torvane::Testing
