#pragma once

/// \file
/// Counts the calls that a library makes to the functions of the table, and lets one of them fail. Set up by one thread
/// before the library is used; counted on any thread.

#include <stdint.h>

#include <functional>
#include <string>

#include <windows.h>

namespace Torvane::Faults::Interposition
{
/// Replaces all imports of the library that can fail, and from then on what it resolves.
/// \param function which one is to fail; empty for none. \param call at which of its calls, from 1 on.
/// \param onFailure is called before the call fails, on its thread, with the return addresses, innermost first.
constexpr uint32_t frameCount = 6;
using OnFailure = void (*)(const uint32_t (&frames)[frameCount]);
void Install(HMODULE library, const std::string& function, uint32_t call, OnFailure onFailure);

/// From now on calls are counted and the chosen one fails, or no longer.
void Arm(bool on);

/// Calls of all functions so far.
uint32_t CountAll();

/// Calls of one function so far.
uint32_t Count(const std::string& function);

/// The name of each function that has been called, with its calls. What the heartbeat's thread calls, whose number is
/// that of its beats, has names of its own.
void ForEachCount(const std::function<void(const std::string& function, uint32_t calls)>& report);

/// The return addresses of a frame pointer's chain, as far as it can be read.
void CollectFrames(uint32_t framePointer, uint32_t* frames, uint32_t count);

/// \return what the table lacks or has too much, compared with the library's imports; empty if nothing.
std::string CompareTable(HMODULE library);
} // namespace Torvane::Faults::Interposition
