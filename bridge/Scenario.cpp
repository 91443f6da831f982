#include "bridge/Scenario.h"

#include "bridge/DefaultBridge.h"

#include <windows.h>

namespace Torvane::Bridge
{
namespace
{
RegisteredScenario* firstScenario;
} // namespace

RegisteredScenario::RegisteredScenario(const char* scenarioName, ScenarioFunction scenarioFunction)
    : name(scenarioName)
    , function(scenarioFunction)
    , next(firstScenario)
{
    firstScenario = this;
}

ScenarioFunction FindScenario(const std::string& name)
{
    if (name.empty())
    {
        return RunDefaultBridge;
    }
    for (const RegisteredScenario* scenario = firstScenario; scenario != nullptr; scenario = scenario->next)
    {
        if (name == scenario->name)
        {
            return scenario->function;
        }
    }
    return nullptr;
}

std::string ChosenScenario()
{
    char name[256] = {};
    const DWORD length = GetEnvironmentVariableA("TORVANE_BRIDGE_SCENARIO", name, sizeof(name));
    return length < sizeof(name) ? std::string(name, length) : std::string();
}
} // namespace Torvane::Bridge
