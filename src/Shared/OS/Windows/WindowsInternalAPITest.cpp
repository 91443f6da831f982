#include "Shared/OS/Windows/WindowsInternalAPI.h"

#include "tests/Support/FakeImport.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TestInternalAPI.h"

#include <string.h>
#include <string>
#include <vector>

namespace Torvane::Testing
{
namespace
{
using Lines = std::vector<std::string>;

/// The functions in the order of the table.
const Lines functions = {"NtSuspendProcess",
                         "NtResumeProcess",
                         "NtReadVirtualMemory",
                         "NtWriteVirtualMemory",
                         "NtQuerySystemInformation",
                         "NtQueryInformationProcess",
                         "NtQueryVirtualMemory",
                         "NtQueryDirectoryFile",
                         "NtQueryInformationFile",
                         "NtContinue",
                         "RtlGetVersion",
                         "LdrRegisterDllNotification",
                         "LdrUnregisterDllNotification",
                         "SetThreadDescription"};

constexpr size_t lastEntry = 13;

const char* ModuleOf(size_t entry)
{
    return entry == lastEntry ? "KernelBase.dll" : "ntdll.dll";
}

/// \return the addresses of the table, in its order.
std::vector<void*> GetEntries()
{
    std::vector<void*> entries(functions.size());
    static_assert(sizeof(WindowsInternalAPI) == (lastEntry + 1) * sizeof(void*));
    memcpy(entries.data(), &GetWindowsInternalAPI(), sizeof(WindowsInternalAPI));
    return entries;
}

void* Find(size_t entry)
{
    const HMODULE module = GetModuleHandleA(ModuleOf(entry));
    EXPECT_NE(module, nullptr);
    return reinterpret_cast<void*>(GetProcAddress(module, functions[entry].c_str()));
}

class InternalAPI : public testing::Test
{
protected:
    InternalAPI()
    {
        memset(static_cast<void*>(&TestInternalAPI::Get()), 0xEE, sizeof(WindowsInternalAPI));
    }

    TestInternalAPI internalAPI;
    RecordedLog log;
};
} // namespace

TEST_F(InternalAPI, HoldsTheFunctionsOfTheOSInTheirOrderAndLogsNothing)
{
    StartupWindowsInternalAPI();
    const std::vector<void*> entries = GetEntries();
    for (size_t i = 0; i < functions.size(); ++i)
    {
        EXPECT_NE(entries[i], nullptr) << functions[i];
        EXPECT_EQ(entries[i], Find(i)) << functions[i];
    }
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(InternalAPI, LooksForTheModuleAfreshForEachEntry)
{
    Lines calls;
    FakeImport module("GetModuleHandleA", [&](decltype(&GetModuleHandleA) real, LPCSTR name) -> HMODULE {
        calls.push_back(name);
        return real(name);
    });
    FakeImport function("GetProcAddress",
                        [&](decltype(&GetProcAddress) real, HMODULE, LPCSTR name) -> FARPROC {
                            calls.push_back(name);
                            return real(GetModuleHandleW(L"ntdll.dll"), name);
                        });
    StartupWindowsInternalAPI();
    Lines expected;
    for (size_t i = 0; i < functions.size(); ++i)
    {
        expected.push_back(ModuleOf(i));
        expected.push_back(functions[i]);
    }
    EXPECT_EQ(calls, expected);
}

TEST_F(InternalAPI, HasNoThreadDescriptionOnASystemWithoutOneAndLogsNothing)
{
    FakeImport function("GetProcAddress",
                        [](decltype(&GetProcAddress) real, HMODULE module, LPCSTR name) -> FARPROC {
                            return strcmp(name, "SetThreadDescription") == 0 ? nullptr : real(module, name);
                        });
    StartupWindowsInternalAPI();
    EXPECT_FALSE(GetWindowsInternalAPI().SetThreadDescription);
    EXPECT_EQ(GetEntries()[lastEntry], nullptr);
    for (size_t i = 0; i < lastEntry; ++i)
    {
        EXPECT_EQ(GetEntries()[i], Find(i)) << functions[i];
    }
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(InternalAPI, AnUnknownFunctionGivesANullEntryAndThoseAfterItAreFilled)
{
    FakeImport function("GetProcAddress",
                        [](decltype(&GetProcAddress) real, HMODULE module, LPCSTR name) -> FARPROC {
                            const bool isMissing = strcmp(name, "NtReadVirtualMemory") == 0;
                            return real(module, isMissing ? "NoSuchFunctionAnywhere" : name);
                        });
    StartupWindowsInternalAPI();
    EXPECT_FALSE(GetWindowsInternalAPI().NtReadVirtualMemory);
    for (size_t i = 0; i < functions.size(); ++i)
    {
        EXPECT_EQ(GetEntries()[i] == nullptr, functions[i] == "NtReadVirtualMemory") << functions[i];
    }
    EXPECT_EQ(log.GetLines(), Lines());
}

TEST_F(InternalAPI, AMissingModuleIsLoggedForEachOfItsEntriesWhichAreNull)
{
    FakeImport module("GetModuleHandleA", [](decltype(&GetModuleHandleA) real, LPCSTR name) -> HMODULE {
        return strcmp(name, "ntdll.dll") == 0 ? nullptr : real(name);
    });
    StartupWindowsInternalAPI();
    for (size_t i = 0; i < lastEntry; ++i)
    {
        EXPECT_EQ(GetEntries()[i], nullptr) << functions[i];
    }
    EXPECT_TRUE(GetWindowsInternalAPI().SetThreadDescription);
    EXPECT_EQ(log.GetLines(), Lines(lastEntry, "ERR Cannot get handle for module ntdll.dll"));
}

TEST_F(InternalAPI, AMissingModuleOfTheLastEntryIsLoggedOnce)
{
    FakeImport module("GetModuleHandleA", [](decltype(&GetModuleHandleA) real, LPCSTR name) -> HMODULE {
        return strcmp(name, "KernelBase.dll") == 0 ? nullptr : real(name);
    });
    StartupWindowsInternalAPI();
    EXPECT_EQ(GetEntries()[lastEntry], nullptr);
    EXPECT_TRUE(GetWindowsInternalAPI().LdrUnregisterDllNotification);
    EXPECT_EQ(log.GetLines(), Lines({"ERR Cannot get handle for module KernelBase.dll"}));
}

TEST_F(InternalAPI, AModuleThatIsNotInTheProcessIsNotLoaded)
{
    ASSERT_EQ(GetModuleHandleA("winmm.dll"), nullptr);
    EXPECT_EQ(FindWindowsFunction("winmm.dll", "timeGetTime"), nullptr);
    EXPECT_EQ(GetModuleHandleA("winmm.dll"), nullptr);
    EXPECT_EQ(log.GetLines(), Lines({"ERR Cannot get handle for module winmm.dll"}));
}

TEST_F(InternalAPI, AFunctionIsCalledThroughItsEntry)
{
    using Signature = int WINAPI(int, int, int);
    const WindowsFunction<Signature> multiplyDivide = {
        reinterpret_cast<Signature*>(FindWindowsFunction("kernel32.dll", "MulDiv"))};
    ASSERT_TRUE(multiplyDivide);
    EXPECT_EQ(multiplyDivide(6, 14, 2), 42);
}
} // namespace Torvane::Testing
