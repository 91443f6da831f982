#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// Names of the shared sections and mutexes that somebody else has taken, with objects of another kind or size. The Agent
// does without what it can't create, and everything else works.

#if TORVANE_HOST_HALF

namespace
{
class TakenNamesTest : public LinkTest
{
protected:
    /// The object's name for this process.
    static std::wstring NameOf(const wchar_t* prefix)
    {
        return prefix + std::to_wstring(GetCurrentProcessId());
    }

    static HANDLE TakeWithEvent(const wchar_t* prefix)
    {
        const HANDLE taken = CreateEventW(nullptr, TRUE, FALSE, NameOf(prefix).c_str());
        EXPECT_NE(nullptr, taken);
        return taken;
    }

    static HANDLE TakeWithSection(const wchar_t* prefix, DWORD size)
    {
        const HANDLE taken = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size,
                                                NameOf(prefix).c_str());
        EXPECT_NE(nullptr, taken);
        return taken;
    }

    /// A whole life of an Agent, with this one Panic line.
    void ExpectLifeWithPanic(std::string panic)
    {
        panic += " for process " + std::to_string(GetCurrentProcessId());
        ConnectDefaultAgent();
        Library().TvnLogMessageANSI("it works");
        EXPECT_TRUE(Await("checked"));
        Shutdown();
        EXPECT_EQ("Shutting down default allocators for memory system", ReadLog().back().message);
        std::vector<std::string> panics;
        for (const LogRecord& record : ReadLog())
        {
            if (record.tag == "PNC")
            {
                panics.push_back(record.message);
            }
        }
        EXPECT_EQ(std::vector<std::string>{panic}, panics);
        ExpectLogOrder({"Running heart beat thread", "Exiting heart beat thread"});
    }

    /// The bytes of a section that this test has taken first.
    static std::vector<uint8_t> Read(HANDLE section, size_t size)
    {
        const auto* view = static_cast<const uint8_t*>(MapViewOfFile(section, FILE_MAP_READ, 0, 0, 0));
        EXPECT_NE(nullptr, view);
        return view == nullptr ? std::vector<uint8_t>() : std::vector<uint8_t>(view, view + size);
    }
};

constexpr char noHeartbeatSection[] = "Cannot create heart beat named shared memory";
constexpr char noHeartbeatMutex[] = "Cannot create heart beat mutex";
constexpr char noPreferencesSection[] = "Cannot create agent bridge shared memory";
constexpr char noPreferencesMutex[] = "Cannot create agent bridge mutex";
constexpr DWORD pageSize = 4096;
} // namespace

#define TAKEN_NAMES(Name) HOST_TEST_OF(TakenNamesTest, TakenNames, Name)

TAKEN_NAMES(OfTheHeartbeatsSectionByAnotherKindOfObject)
{
    UseScenario("TakenNames.LeaveAnAgentThatWorks");
    TakeWithEvent(heartbeatSectionPrefix);
    ExpectLifeWithPanic(noHeartbeatSection);
}

TAKEN_NAMES(OfTheHeartbeatsMutexByAnotherKindOfObject)
{
    UseScenario("TakenNames.LeaveAnAgentThatWorks");
    const HANDLE section = TakeWithSection(heartbeatSectionPrefix, pageSize);
    TakeWithEvent(heartbeatMutexPrefix);
    ExpectLifeWithPanic(noHeartbeatMutex);
    EXPECT_EQ(std::vector<uint8_t>(pageSize), Read(section, pageSize))
        << "Nothing is written without the mutex.";
}

TAKEN_NAMES(OfThePreferencesSectionByAnotherKindOfObject)
{
    UseScenario("TakenNames.LeaveAnAgentThatWorks");
    TakeWithEvent(agentBridgeSectionPrefix);
    ExpectLifeWithPanic(noPreferencesSection);
}

TAKEN_NAMES(OfThePreferencesSectionByASmallerOne)
{
    UseScenario("TakenNames.LeaveAnAgentThatWorks");
    const HANDLE section = TakeWithSection(agentBridgeSectionPrefix, pageSize);
    ExpectLifeWithPanic(noPreferencesSection);
    EXPECT_EQ(std::vector<uint8_t>(pageSize), Read(section, pageSize));
}

TAKEN_NAMES(OfThePreferencesMutexByAnotherKindOfObject)
{
    UseScenario("TakenNames.LeaveAnAgentThatWorks");
    const HANDLE section = TakeWithSection(agentBridgeSectionPrefix, agentBridgeSectionSize);
    TakeWithEvent(agentBridgeMutexPrefix);
    ExpectLifeWithPanic(noPreferencesMutex);
    EXPECT_EQ(std::vector<uint8_t>(pageSize), Read(section, pageSize));
}

#else

BRIDGE_SCENARIO(TakenNames, LeaveAnAgentThatWorks)
{
    EXPECT_TRUE(projectPreferences) << "They are sent all the same.";
    EXPECT_TRUE(link.WaitFor<LogBlob>(testTimeout, BlobType::LogNarrow));
}

#endif
