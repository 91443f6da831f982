#pragma once

/// \file
/// A folder for a test's files; one thread.

#include "tests/Support/Files.h"
#include "tests/Support/Wait.h"

#include <gtest/gtest.h>

namespace Torvane::Testing
{
/// A new folder below the folder of temporary files, removed at the end with all that it holds.
class TemporaryFolder
{
public:
    /// \param suffix what the folder's name ends in.
    explicit TemporaryFolder(const std::wstring& suffix = L"")
    {
        static unsigned made = 0;
        path = TemporaryFilesFolder() + L"TorvaneTest-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
               std::to_wstring(++made) + suffix;
        RemoveFolder(path); // what an earlier process of this id has left
        EXPECT_TRUE(CreateDirectoryW(path.c_str(), nullptr));
    }

    ~TemporaryFolder()
    {
        const bool removed = RemoveFolder(path);
        if (!leavesFilesInUse)
        {
            EXPECT_TRUE(removed) << "a file of the test is still in use";
            // A process that ran in the folder can keep it open for a moment after its end.
            EXPECT_TRUE(WaitUntil([this] { return RemoveFolder(path) && !Exists(path); }));
        }
    }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// For files that the tested code may still have loaded at the end: what is in use then stays.
    void LeaveFilesInUse()
    {
        leavesFilesInUse = true;
    }

    const std::wstring& GetPath() const
    {
        return path;
    }

    std::wstring operator/(const std::wstring& name) const
    {
        return path + L"\\" + name;
    }

    std::wstring MakeFolder(const std::wstring& name) const
    {
        EXPECT_TRUE(CreateDirectoryW((*this / name).c_str(), nullptr));
        return *this / name;
    }

    std::wstring MakeFile(const std::wstring& name, const std::string& bytes = "") const
    {
        EXPECT_TRUE(WriteWholeFile(*this / name, bytes.data(), bytes.size()));
        return *this / name;
    }

    std::wstring Copy(const std::wstring& source, const std::wstring& name) const
    {
        EXPECT_TRUE(CopyFileW(source.c_str(), (*this / name).c_str(), FALSE));
        return *this / name;
    }

private:
    std::wstring path;
    bool leavesFilesInUse = false;
};
} // namespace Torvane::Testing
