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

std::string ScenarioNames()
{
    std::string names;
    for (const RegisteredScenario* scenario = firstScenario; scenario != nullptr; scenario = scenario->next)
    {
        names += (names.empty() ? "" : ", ") + std::string(scenario->name);
    }
    return names.empty() ? "it has none." : "it has " + names + ".";
}

std::string ChosenScenario()
{
    std::string name(32768, '\0'); // the longest that an environment variable can be
    name.resize(
        GetEnvironmentVariableA("TORVANE_BRIDGE_SCENARIO", name.data(), static_cast<DWORD>(name.size())));
    return name;
}
} // namespace Torvane::Bridge
