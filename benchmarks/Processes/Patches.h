#pragma once

/// \file
/// Benchmark 9, as both sides know it: images, whose one section fills their file.

#include "../Support/Board.h"

#include <stdint.h>

#include <string>

namespace Torvane::Benchmarks
{
constexpr uint32_t patchSizes[] = {16 << 10, 128 << 10, 1 << 20, 4 << 20, 16 << 20}; // bytes

inline std::wstring PatchPath(const Board& board, uint32_t size)
{
    return std::wstring(board->folder) + L"\\image" + std::to_wstring(size) + L".dll";
}
} // namespace Torvane::Benchmarks
