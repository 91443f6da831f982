#pragma once

/// \file
/// Bad company: what another process does to an Agent's names before and while it starts, and what a Bridge does wrong.

#include <stdint.h>

#include <string>

namespace Torvane::Faults
{
struct Company
{
    const char* name;
    void (*hold)(const Company& company, const std::wstring& objectName); ///< null: nobody holds anything
    const wchar_t* prefix;                                                ///< of the object's name
    uint32_t parameter;                                                   ///< of `hold`
    const char* bridge; ///< how the Bridge behaves; empty: as it should
};

/// \return null if there is none of that name.
const Company* FindCompany(const std::string& name);

/// Writes the name of each to the standard output.
void PrintCompany();

/// Starts another process that keeps this one bad company, and waits until it does.
void InviteCompany(const Company& company);

/// What that process runs, until its host ends.
int KeepCompany(const Company& company, uint32_t hostProcessId);
} // namespace Torvane::Faults
