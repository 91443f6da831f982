// Benchmark 9, the host's part: the files.
#include "HostBenchmarks.h"
#include "Patches.h"
#include "tests/Support/TestLibraries.h"

namespace Torvane::Benchmarks
{
namespace
{
void WriteWhole(const std::wstring& path, const std::vector<uint8_t>& bytes)
{
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD written = 0;
    if (!WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr))
    {
        Fail("An image can't be written");
    }
    CloseHandle(file);
}
} // namespace

void WritePatches(Board& board, TvnDefaultAgent&)
{
    wchar_t temporary[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, temporary);
    const std::wstring folder = temporary + (L"TorvaneBenchmark" + std::to_wstring(GetCurrentProcessId()));
    CreateDirectoryW(folder.c_str(), nullptr);
    wcscpy(board->folder, folder.c_str());
    for (const uint32_t size : patchSizes)
    {
        std::vector<uint8_t> bytes = Testing::BuildTestLibrary("image.dll", {}, size);
        auto* headers = reinterpret_cast<IMAGE_NT_HEADERS32*>(
            bytes.data() + reinterpret_cast<IMAGE_DOS_HEADER*>(bytes.data())->e_lfanew);
        IMAGE_SECTION_HEADER* section = IMAGE_FIRST_SECTION(headers);
        section->SizeOfRawData = size - section->VirtualAddress;
        bytes.resize(section->PointerToRawData + section->SizeOfRawData, 0x5A);
        WriteWhole(PatchPath(board, size), bytes);
    }
}

void DeletePatches(Board& board, TvnDefaultAgent&)
{
    for (const uint32_t size : patchSizes)
    {
        DeleteFileW(PatchPath(board, size).c_str());
    }
    RemoveDirectoryW(board->folder);
}
} // namespace Torvane::Benchmarks
