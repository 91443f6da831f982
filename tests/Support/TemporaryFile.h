#pragma once

/// \file
/// Files for tests, on the target and natively; one thread.

#include <stdint.h>
#include <stdio.h>
#include <string>
#include <vector>

#if defined(_WIN32)
#include "tests/Support/Files.h"

#include <gtest/gtest.h>
#else
#include <stdlib.h>
#include <unistd.h>
#endif

namespace Torvane::Testing
{
/// A file in the folder of temporary files, removed at the end.
class TemporaryFile
{
public:
    explicit TemporaryFile(const std::vector<uint8_t>& bytes = {})
    {
#if defined(_WIN32)
        wchar_t name[MAX_PATH] = {};
        EXPECT_NE(GetTempFileNameW(TemporaryFilesFolder().c_str(), L"TVN", 0, name), 0u);
        path = name;
        EXPECT_TRUE(WriteWholeFile(path, bytes.data(), bytes.size()));
#else
        char name[] = "/tmp/TorvaneTestXXXXXX";
        close(mkstemp(name));
        narrowPath = name;
        path.assign(narrowPath.begin(), narrowPath.end());
        path.push_back(0);
        FILE* file = fopen(name, "wb");
        fwrite(bytes.data(), 1, bytes.size(), file);
        fclose(file);
#endif
    }

    ~TemporaryFile()
    {
#if defined(_WIN32)
        DeleteFileW(path.c_str());
#else
        unlink(narrowPath.c_str());
#endif
    }

    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const wchar_t* GetPath() const
    {
        return path.data();
    }

private:
#if defined(_WIN32)
    std::wstring path;
#else
    std::string narrowPath;
    std::vector<wchar_t> path; // wide characters of the host don't have 16 bits
#endif
};

#if defined(_WIN32)
/// Makes a file for tested code that keeps it open until the process ends. It isn't removed when the test ends, but by
/// a later run.
inline std::wstring MakePersistentFile(const std::string& bytes)
{
    const std::wstring folder = TemporaryFilesFolder() + L"TorvaneTest-persistent";
    RemoveFolder(folder);
    CreateDirectoryW(folder.c_str(), nullptr);
    wchar_t path[MAX_PATH] = {};
    EXPECT_NE(GetTempFileNameW(folder.c_str(), L"TVN", 0, path), 0u);
    EXPECT_TRUE(WriteWholeFile(path, bytes.data(), bytes.size()));
    return path;
}
#endif
} // namespace Torvane::Testing
