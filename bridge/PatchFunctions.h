#pragma once

/// \file
/// Which functions of a patch replace which functions of a host, by their names. Portable, any thread.
///
/// A patch replaces with what it exports. MinGW's linkers export all functions of a library that aren't static, unless
/// its source declares some of them exported; a static function is replaced for those who call it in the patch.

#include "bridge/ImageSymbols.h"

#include <stdint.h>
#include <string>
#include <vector>

namespace Torvane::Bridge
{
/// A module of the host with the names that are known of it.
struct HostModule
{
    std::string name; ///< of its file
    uint64_t base;
    std::vector<ImageFunction> exports;
    std::vector<ImageFunction> symbols; ///< by the COFF symbol table or, without one, by a PDB
};

/// What becomes of one function of a patch.
struct MatchedFunction
{
    std::string name;     ///< readable
    std::string module;   ///< the host's module that has it; empty if none has
    uint64_t from = 0;    ///< its address in the host; 0 if it isn't replaced
    uint32_t to = 0;      ///< its RVA in the patch
    std::string obstacle; ///< why a function that the host has isn't replaced
};

/// Whether a name belongs to the compiler, its C++ library, its thread library or its C headers. A library that contains
/// these exports them as well, and the host's own have to stay: they keep state, or are the same.
bool IsNameOfRuntime(const std::string& name);

/// In the order of the patch's exports, without functions of the runtime libraries.
///
/// In each module a name is looked up among the exports, then among the symbols: first those that aren't static. A name
/// that several functions have is ambiguous.
std::vector<MatchedFunction> MatchFunctions(const std::vector<ImageFunction>& patchExports,
                                            const std::vector<HostModule>& modules);
} // namespace Torvane::Bridge
