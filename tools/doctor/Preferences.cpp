#include "tools/doctor/Preferences.h"

#include "Shared/Serialization/JsonReader.h"
#include "bridge/Text.h"
#include "tools/doctor/Folders.h"

#include <stdlib.h>
#include <string.h>
#include <vector>
#include <windows.h>

namespace Torvane::Doctor
{
namespace
{
using Bridge::Utf8;

constexpr int32_t defaultTimeout = 2000;

/// From the lowest precedence to the highest.
constexpr const wchar_t* fileNames[] = {
    L"global_preferences_default.json",
    L"global_preferences.json",
    L"global_preferences_override.json",
};

/// \return the OS's error code, 0 if the file was read.
uint32_t ReadWholeFile(const std::wstring& path, std::vector<uint8_t>& bytes)
{
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        return GetLastError();
    }
    bytes.resize(GetFileSize(file, nullptr));
    DWORD read = 0;
    const BOOL wasRead = ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr);
    const DWORD error = wasRead ? 0 : GetLastError();
    CloseHandle(file);
    bytes.resize(read);
    return error;
}

/// \return each value of a name in an object, in order.
std::vector<const JsonValue*> FindMembers(const JsonObject& object, const char* name)
{
    std::vector<const JsonValue*> values;
    for (const JsonObjectElement* member = object.first; member != nullptr; member = member->next)
    {
        if (std::string(member->name->text, member->name->length) == name)
        {
            values.push_back(member->value);
        }
    }
    return values;
}

/// Sets `timeout` to the last number that is there under its name, up to the number's first character that is no digit.
void ReadTimeout(const JsonObject& root, int32_t& timeout)
{
    for (const JsonValue* section : FindMembers(root, "Network"))
    {
        const JsonObject* object = AsJsonObject(*section);
        if (object == nullptr)
        {
            continue;
        }
        for (const JsonValue* value : FindMembers(*object, "timeout"))
        {
            if (value->type == JsonType::Number)
            {
                timeout = static_cast<int32_t>(
                    strtoll(static_cast<const JsonNumber*>(value->payload)->text, nullptr, 10));
            }
        }
    }
}

void ReportMalformed(const std::string& path, const JsonParseState& state, Report& report)
{
    // In the first line there is no line feed before the first character.
    const uint32_t column = state.lineNumber == 1 ? state.offset + 1 : state.offset - state.lineOffset;
    report.Add(Finding::PreferencesMalformed,
               {path, std::to_string(state.lineNumber), std::to_string(column)});
}

/// Whether the file has been read as the Agent reads it.
bool CheckFile(const std::wstring& path, int32_t& timeout, Report& report)
{
    std::vector<uint8_t> bytes;
    const uint32_t error = ReadWholeFile(path, bytes);
    if (error != 0)
    {
        report.Add(Finding::PreferencesNotRead, {Utf8(path), ErrorText(error)});
        return false;
    }
    if (bytes.empty())
    {
        report.Add(Finding::PreferencesEmpty, {Utf8(path)});
        return false;
    }
    JsonParseState state = StartJsonParse(bytes.data(), static_cast<uint32_t>(bytes.size()), 0);
    JsonValue* const root = ParseJson(state);
    if (root == nullptr)
    {
        ReportMalformed(Utf8(path), state, report);
        return false;
    }
    const JsonObject* object = AsJsonObject(*root);
    report.Add(object != nullptr ? Finding::PreferencesRead : Finding::PreferencesNoObject, {Utf8(path)});
    if (object != nullptr)
    {
        ReadTimeout(*object, timeout);
    }
    FreeJson(root);
    return object != nullptr;
}
} // namespace

uint32_t CheckPreferences(const std::wstring& libraryFolder, Report& report)
{
    const std::wstring folder = FullPath(libraryFolder + L"\\..\\..\\Broker");
    int32_t timeout = defaultTimeout;
    std::string source = "the default: " + Utf8(folder) + " has no preferences";
    for (const wchar_t* name : fileNames)
    {
        const std::wstring path = folder + L"\\" + name;
        int32_t ofFile = timeout;
        if (IsThere(path) && CheckFile(path, ofFile, report))
        {
            source = "with the preferences in " + Utf8(folder);
            timeout = ofFile;
        }
    }
    if (timeout <= 0)
    {
        report.Add(Finding::TimeoutZero, {Utf8(folder), std::to_string(timeout)});
        return 0;
    }
    report.Add(Finding::TimeoutSet, {std::to_string(timeout), source});
    return static_cast<uint32_t>(timeout);
}
} // namespace Torvane::Doctor
