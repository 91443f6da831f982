#pragma once

/// \file
/// What a default Bridge does, chosen by name; registered before `main`, looked up by the main thread.

#include <stdint.h>
#include <string>

namespace Torvane::Bridge
{
/// \return the process's exit code.
using ScenarioFunction = int (*)(uint32_t hostProcessId);

/// Registers a scenario from a static object of a source file that is linked into the program by name, not out of
/// a library: `static const RegisteredScenario liveReload("LiveReload", RunLiveReload);`
class RegisteredScenario
{
public:
    RegisteredScenario(const char* name, ScenarioFunction function);

private:
    friend ScenarioFunction FindScenario(const std::string& name);

    const char* name;
    ScenarioFunction function;
    RegisteredScenario* next;
};

/// The scenario of that name, `RunDefaultBridge` for an empty one; null if there is none.
ScenarioFunction FindScenario(const std::string& name);

/// The scenario that this process is to run: the environment variable `TORVANE_BRIDGE_SCENARIO`, which a host
/// sets before it starts its Agent and which the Bridge inherits. Empty if it isn't set.
std::string ChosenScenario();
} // namespace Torvane::Bridge
