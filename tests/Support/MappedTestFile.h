#pragma once

/// \file
/// Mapped files of given bytes, for tests of the image reader; one thread.

#include "Shared/Filesystem/MappedFile.h"
#include "tests/Support/TemporaryFile.h"

#if defined(_WIN32)
#include "Shared/Filesystem/Windows/Filesystem.h"
#include "tests/Support/Modules.h"
#else
#include "tests/Support/Native/NativeMappedFile.h"
#endif

namespace Torvane::Testing
{
/// Whether a mapped file was closed since this object was made.
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
        return IsOpenHandle(watched.file) && IsOpenHandle(watched.mapping) && IsMapped(watched.view);
    }

    bool IsClosed() const
    {
        return !IsOpenHandle(watched.file) && !IsOpenHandle(watched.mapping) && !IsMapped(watched.view);
    }

private:
    static bool IsMapped(const void* address)
    {
        return QueryMemory(address).State != MEM_FREE;
    }

    MappedFile watched;
#else
    explicit MappedFileWatch(const MappedFile& file)
        : watchedView(file.view)
        , closedBefore(closedMappedFiles)
    {
    }

    bool IsOpen() const
    {
        return closedMappedFiles == closedBefore;
    }

    bool IsClosed() const
    {
        return closedMappedFiles == closedBefore + 1 && lastClosedView == watchedView;
    }

private:
    const uint8_t* watchedView;
    uint32_t closedBefore;
#endif
};

/// A mapped file of given bytes, which the test closes.
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
    TemporaryFile onDisk;
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
} // namespace Torvane::Testing
