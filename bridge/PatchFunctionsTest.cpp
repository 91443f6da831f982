#include "bridge/PatchFunctions.h"

#include <gtest/gtest.h>

namespace
{
using namespace Torvane::Bridge;

const HostModule game = {
    "Game.exe",
    0x400000,
    {{"Exported", 0x1000, false}},
    {{"Exported", 0x1100, true}, // a static function of the same name
     {"External", 0x1200, false},
     {"External", 0x1300, true}, // likewise
     {"Static", 0x1400, true},
     {"Twins", 0x1500, true},
     {"Twins", 0x1600, true},
     {"Short", 0x1700, false},
     {"AfterShort", 0x1704, false},
     {"Five", 0x1800, false},
     {"AfterFive", 0x1805, false},
     {"Shared", 0x1900, false},
     {"Alias", 0x1200, false}},
};
const HostModule world = {
    "World.dll", 0x10000000, {{"Shared", 0x2000, false}, {"InWorld", 0x2100, false}}, {}};

TEST(PatchFunctions, AreMatchedByName)
{
    struct Case
    {
        const char* name;
        uint64_t from;
        const char* module;
        const char* obstacle;
    };
    const Case cases[] = {
        {"Exported", 0x401000, "Game.exe", ""},
        {"External", 0x401200, "Game.exe", ""},
        {"Static", 0x401400, "Game.exe", ""},
        {"Five", 0x401800, "Game.exe", ""},
        {"InWorld", 0x10002100, "World.dll", ""},
        {"New", 0, "", ""},
        {"Twins", 0, "Game.exe", "2 functions of Game.exe have that name"},
        {"Short", 0, "Game.exe", "in Game.exe it is shorter than the 5 bytes of a jump"},
        {"Shared", 0, "World.dll", "Game.exe and World.dll have functions of that name"},
    };
    for (const Case& expected : cases)
    {
        const auto matches = MatchFunctions({{expected.name, 0x50, false}}, {game, world});
        ASSERT_EQ(1u, matches.size()) << expected.name;
        EXPECT_EQ(expected.name, matches[0].name);
        EXPECT_EQ(expected.from, matches[0].from) << expected.name;
        EXPECT_EQ(0x50u, matches[0].to);
        EXPECT_EQ(expected.module, matches[0].module) << expected.name;
        EXPECT_EQ(expected.obstacle, matches[0].obstacle) << expected.name;
    }
}

TEST(PatchFunctions, AreRoutedOnceIfTheyHaveTwoNamesAndNotAtAllIfTheseDiverge)
{
    const auto same = MatchFunctions({{"External", 0x50, false}, {"Alias", 0x50, false}}, {game});
    ASSERT_EQ(1u, same.size());
    EXPECT_EQ("External", same[0].name);
    EXPECT_EQ(0x401200u, same[0].from);

    const auto different = MatchFunctions({{"External", 0x50, false}, {"Alias", 0x60, false}}, {game});
    ASSERT_EQ(2u, different.size());
    for (const MatchedFunction& match : different)
    {
        EXPECT_EQ(0u, match.from) << match.name;
    }
    EXPECT_EQ("in Game.exe it has the same code as Alias", different[0].obstacle);
    EXPECT_EQ("in Game.exe it has the same code as External", different[1].obstacle);
}

TEST(PatchFunctions, OfTheRuntimeLibrariesAreLeftOut)
{
    for (const char* name :
         {"__register_frame", "_Unwind_Resume", "__emutls_get_address", "_ZNSt6vectorIiE3fooEv", "_ZSt4sortv",
          "pthread_create", "nanosleep", "atexit", "DllMain@12", "DllMainCRTStartup@12", "_CRT_INIT@12",
          "_pthread_get_state", "thread_print", "_Z6printfPKcz", "snwprintf"})
    {
        EXPECT_TRUE(IsNameOfRuntime(name)) << name;
    }
    for (const char* name : {"Step", "_Z4Stepi", "_ZN4Game4StepESt6vectorIiE", "_step", "WndProc@16",
                             "thread", "_", "_Z6printfP7ConsolePKcz", "_ZN4Game6printfEPKcz", "logprintf"})
    {
        EXPECT_FALSE(IsNameOfRuntime(name)) << name;
    }
    EXPECT_EQ(0u, MatchFunctions({{"pthread_create", 0x50, false}}, {game}).size());
}
} // namespace
