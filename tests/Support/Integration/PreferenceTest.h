#pragma once

/// \file
/// The host half of a test of preferences: files in real folders beside a library of the test's own.

#include "tests/Support/Files.h"
#include "tests/Support/Integration/LinkTest.h"
#include "tests/Support/Utf8.h"

#include <windows.h>

namespace Torvane::Testing
{
/// Base of the host halves. Where the Bridge is to connect, the time-outs of the files are long ones.
class PreferenceTest : public LinkTest
{
protected:
    /// Called first. The library is in the folder `agent\x86` of `Root()`, and there are no preferences.
    void PrepareFolders()
    {
        UseOwnAgentFolder();
        wchar_t path[MAX_PATH] = {};
        GetModuleFileNameW(static_cast<HMODULE>(Library().Module()), path, MAX_PATH);
        library = path;
        library.erase(library.find_last_of(L'\\'));
        root = library.substr(0, library.size() - wcslen(L"\\agent\\x86"));
    }

    /// The folder of the Agent's own file.
    const std::wstring& LibraryFolder() const
    {
        return library;
    }

    const std::wstring& Root() const
    {
        return root;
    }

    std::wstring MakeFolder(const std::wstring& name) const
    {
        const std::wstring folder = root + L"\\" + name;
        EXPECT_TRUE(CreateDirectoryW(folder.c_str(), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS);
        return folder;
    }

    static std::wstring MakeFile(const std::wstring& path, const std::string& text)
    {
        EXPECT_TRUE(WriteWholeFile(path, text.data(), text.size())) << Utf8(path);
        return path;
    }

    /// A global preference file of the folder `broker`, as "default", "" or "override", with a text for its value.
    static std::wstring MakeGlobalFile(const std::wstring& broker, const std::wstring& kind,
                                       const std::string& timeout)
    {
        return MakeFile(GlobalFile(broker, kind), "{\"Network\": {\"timeout\": " + timeout + "}}");
    }

    static std::wstring GlobalFile(const std::wstring& broker, const std::wstring& kind)
    {
        return broker + L"\\global_preferences" + (kind.empty() ? L"" : L"_" + kind) + L".json";
    }

    /// A project preference file with a path for its value.
    static std::wstring MakeProjectFile(const std::wstring& path, const std::wstring& directoryToBroker)
    {
        std::string value;
        for (const char character : Utf8(directoryToBroker))
        {
            value += character == '\\' ? "\\\\" : std::string(1, character);
        }
        return MakeFile(path, "{\"General\": {\"directoryToBroker\": \"" + value + "\"}}");
    }

    /// A path that exists, as the Agent spells it in its log.
    static std::string Spelled(const std::wstring& path)
    {
        const HANDLE file = CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                        OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
        EXPECT_NE(INVALID_HANDLE_VALUE, file) << Utf8(path);
        wchar_t spelled[1024] = {};
        GetFinalPathNameByHandleW(file, spelled, 1024, 0);
        CloseHandle(file);
        return Utf8(spelled + wcslen(L"\\\\?\\"));
    }

    void ExpectTimeout(uint32_t milliseconds)
    {
        EXPECT_TRUE(WaitForLog("Waiting for bridge to connect to pipes, timeout " +
                               std::to_string(milliseconds) + "ms"));
    }

    /// Starts an Agent to which the default Bridge connects, and checks its time-out.
    void ExpectConnectionWithTimeout(uint32_t milliseconds, const wchar_t* projectPath = nullptr,
                                     const TvnProjectPreferences* projectRecord = nullptr)
    {
        UseDefaultBridge();
        StartDefaultAgent(projectPath, projectRecord);
        ExpectTimeout(milliseconds);
        EXPECT_EQ(ConnectionSucceeded, WaitForConnection());
    }

private:
    std::wstring library;
    std::wstring root;
};
} // namespace Torvane::Testing
