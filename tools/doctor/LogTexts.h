#pragma once

/// \file
/// What the Agent's Error and Panic lines mean: a table by the formats of its own texts. Any thread.

#include <string>

namespace Torvane::Doctor
{
struct Explanation
{
    const char* meaning;     ///< a sentence
    const char* remedy;      ///< likewise
    bool isHarmless = false; ///< a line that healthy programs have as well
};

/// \param text of a line of the Agent's log. \return null for a text that no Agent of this version writes.
const Explanation* ExplainLogText(const std::string& text);
} // namespace Torvane::Doctor
