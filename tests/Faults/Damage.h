#pragma once

/// \file
/// Faults that a host does to itself, to prove that they are noticed; for the thread that lives.

#include <string>

namespace Torvane::Faults
{
/// Does the damage of that name. \return false if there is none.
bool DoDamage(const std::string& name);
} // namespace Torvane::Faults
