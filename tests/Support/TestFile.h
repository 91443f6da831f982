#pragma once

/// \file
/// Files and mapped files with given bytes, for tests of the image reader; one thread.

#include "Shared/Filesystem/MappedFile.h"
#include "Shared/Foundation/Result.h"

#include <stdint.h>
#include <stdio.h>
#include <string>
#include <vector>

#if defined(_WIN32)
#include "Shared/Filesystem/Windows/Filesystem.h"

#include <windows.h>
#else
#include "tests/Support/Native/NativeMappedFile.h"

#include <stdlib.h>
#include <unistd.h>
#endif

namespace Torvane
{
/// A temporary file.
class TestFile
{
public:
    explicit TestFile(const std::vector<uint8_t>& bytes)
    {
#if defined(_WIN32)
        wchar_t folder[MAX_PATH];
        wchar_t name[MAX_PATH];
        GetTempPathW(MAX_PATH, folder);
        GetTempFileNameW(folder, L"TVN", 0, name);
        path = name;
        FILE* file = _wfopen(name, L"wb");
#else
        char name[] = "/tmp/TorvaneTestXXXXXX";
        close(mkstemp(name));
        narrowPath = name;
        path.assign(narrowPath.begin(), narrowPath.end());
        path.push_back(0);
        FILE* file = fopen(name, "wb");
#endif
        fwrite(bytes.data(), 1, bytes.size(), file);
        fclose(file);
    }

    ~TestFile()
    {
#if defined(_WIN32)
        DeleteFileW(path.c_str());
#else
        unlink(narrowPath.c_str());
#endif
    }

    TestFile(const TestFile&) = delete;
    TestFile& operator=(const TestFile&) = delete;

    const wchar_t* GetPath() const
    {
        return path.data();
    }

private:
#if defined(_WIN32)
    std::wstring path;
#else
    std::string narrowPath;
    std::vector<wchar_t> path; // the host's wide texts aren't of 16 bits
#endif
};

/// Tells whether a mapped file was closed since the watch began.
class MappedFileWatch
{
public:
#if defined(_WIN32)
    explicit MappedFileWatch(const MappedFile& file)
        : watched(file)
    {
    }

    bool IsOpen() const
    {
        return IsHandle(watched.file) && IsHandle(watched.mapping) && IsMapped(watched.view);
    }

    bool IsClosed() const
    {
        return !IsHandle(watched.file) && !IsHandle(watched.mapping) && !IsMapped(watched.view);
    }

private:
    static bool IsHandle(HANDLE handle)
    {
        DWORD flags = 0;
        return GetHandleInformation(handle, &flags) != 0;
    }

    static bool IsMapped(const void* address)
    {
        MEMORY_BASIC_INFORMATION information = {};
        VirtualQuery(address, &information, sizeof(information));
        return information.State != MEM_FREE;
    }

    MappedFile watched;
#else
    explicit MappedFileWatch(const MappedFile&)
        : closedBefore(closedMappedFiles)
    {
    }

    bool IsOpen() const
    {
        return closedMappedFiles == closedBefore;
    }

    bool IsClosed() const
    {
        return closedMappedFiles == closedBefore + 1;
    }

private:
    uint32_t closedBefore;
#endif
};

/// A mapped file of given bytes. The test closes it, as whoever else owns it would.
class MappedTestFile
{
public:
#if defined(_WIN32)
    explicit MappedTestFile(const std::vector<uint8_t>& bytes)
        : onDisk(bytes)
        , file(OpenMappedFile(onDisk.GetPath()).payload)
        , watch(file)
    {
    }

private:
    TestFile onDisk;
#else
    explicit MappedTestFile(const std::vector<uint8_t>& bytes)
        : buffer(bytes)
        , file(LendAsMappedFile(buffer.data()))
        , watch(file)
    {
    }

private:
    std::vector<uint8_t> buffer;
#endif

public:
    MappedFile file;
    MappedFileWatch watch;
};
} // namespace Torvane
