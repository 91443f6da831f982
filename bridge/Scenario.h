#pragma once

/// \file
/// Named alternatives to `RunDefaultBridge`; registered before `main`, looked up by the main thread.

#include <stdint.h>
#include <string>

namespace Torvane::Bridge
{
/// \return the process's exit code.
using ScenarioFunction = int (*)(uint32_t hostProcessId);

/// Registers a scenario, as a static object: `static const RegisteredScenario liveReload("LiveReload", RunLiveReload);`.
/// Its object file has to be linked directly, since the linker drops it from a library.
class RegisteredScenario
{
public:
    RegisteredScenario(const char* name, ScenarioFunction function);

private:
    friend ScenarioFunction FindScenario(const std::string& name);
    friend std::string ScenarioNames();

    const char* name;
    ScenarioFunction function;
    RegisteredScenario* next;
};

/// The scenario of that name, `RunDefaultBridge` for an empty one; null if there is none.
ScenarioFunction FindScenario(const std::string& name);

/// A sentence: what scenarios this program has.
std::string ScenarioNames();

/// The value of the environment variable `TORVANE_BRIDGE_SCENARIO`, which a host sets before it starts its Agent and
/// which the Bridge inherits. Empty if it isn't set.
std::string ChosenScenario();
} // namespace Torvane::Bridge
