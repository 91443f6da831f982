#include "tests/Support/Integration/IntegrationTest.h"

#include <windows.h>

// CallHooks: hooks that write down the stack frame they were called with.

namespace
{
constexpr uint32_t number = 0xA1B2C3D4;
constexpr uint32_t longListSize = 3000;

/// "text 0", "text 1" and so on.
[[maybe_unused]] std::vector<std::string> MakeTexts(uint32_t count)
{
    std::vector<std::string> texts;
    for (uint32_t i = 0; i < count; ++i)
    {
        texts.push_back("text " + std::to_string(i));
    }
    return texts;
}
} // namespace

#if TORVANE_HOST_HALF

#include "tests/Support/Integration/BlockTrace.h"

namespace
{
constexpr uint32_t argumentCount = 7;

/// One call of a hook. What arguments point to is freed afterwards, so it is a copy.
struct HookCall
{
    uint32_t hook;
    uint32_t threadId;
    uint32_t stackPointer; ///< where the return address is
    uint32_t arguments[argumentCount];
    std::string bytes[argumentCount]; ///< the bytes there if the argument is an address
    std::vector<uint32_t> list;       ///< the third argument as an array, the fourth being its count
    std::vector<std::string> listTexts;
    uint32_t openLists; ///< arrays of the long list's size that the Agent hasn't freed

    std::string Text(uint32_t argument) const
    {
        return bytes[argument].c_str();
    }
};

/// In order; added to by the Agent's receiver thread, read when the Bridge half has signalled that the Agent has executed the calls.
std::vector<HookCall> hookCalls;

/// Up to 64 bytes at an address; none if nothing can be read there.
std::string ReadBytes(uint32_t address)
{
    const char* start = reinterpret_cast<const char*>(address);
    MEMORY_BASIC_INFORMATION region = {};
    constexpr DWORD unreadable = PAGE_NOACCESS | PAGE_GUARD | PAGE_EXECUTE;
    if (VirtualQuery(start, &region, sizeof(region)) == 0 || region.State != MEM_COMMIT ||
        (region.Protect & unreadable) != 0)
    {
        return {};
    }
    const size_t left = static_cast<const char*>(region.BaseAddress) + region.RegionSize - start;
    std::string bytes(start, left < 64 ? left : 64);
    bytes.push_back('\0');
    return bytes;
}

void __cdecl Record(uint32_t hook, const uint32_t* stack)
{
    HookCall call = {};
    call.hook = hook;
    call.threadId = GetCurrentThreadId();
    call.stackPointer = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(stack));
    for (uint32_t i = 0; i < argumentCount; ++i)
    {
        call.arguments[i] = stack[1 + i];
        call.bytes[i] = ReadBytes(stack[1 + i]);
    }
    const uint32_t count = call.arguments[3];
    if (count <= longListSize && !call.bytes[2].empty())
    {
        const uint32_t* list = reinterpret_cast<const uint32_t*>(call.arguments[2]);
        for (uint32_t i = 0; i < count; ++i)
        {
            call.list.push_back(list[i]);
            call.listTexts.push_back(ReadBytes(list[i]).c_str());
        }
    }
    call.openLists = BlockTrace::CountBlocks(longListSize * sizeof(uint32_t)).open;
    hookCalls.push_back(call);
}

/// Records its stack, and leaves its result and the registers that it may change with nothing useful in them.
template<uint32_t hook>
__attribute__((naked)) void RecordingHook()
{
    asm volatile("pushal\n\t"
                 "leal 32(%%esp), %%eax\n\t"
                 "pushl %%eax\n\t"
                 "pushl %[hook]\n\t"
                 "calll %P[record]\n\t"
                 "addl $8, %%esp\n\t"
                 "popal\n\t"
                 "movl $0xBAD00001, %%eax\n\t"
                 "movl $0xBAD00002, %%ecx\n\t"
                 "movl $0xBAD00003, %%edx\n\t"
                 "retl"
                 :
                 : [hook] "i"(hook), [record] "i"(&Record));
}

/// A hook of kind 4 that uses its arguments' place on the stack for something else, as it may.
__attribute__((naked)) void ScribblingHook()
{
    asm volatile("movl $-1, 4(%esp)\n\t"
                 "movl $-1, 8(%esp)\n\t"
                 "movl $-1, 12(%esp)\n\t"
                 "movl $-1, 16(%esp)\n\t"
                 "retl");
}

using Hook = void (*)();

void ExpectHookId(const HookCall& call)
{
    EXPECT_EQ(0u, call.arguments[0] & 0xFF);
}

std::vector<uint32_t> CalledHooks()
{
    std::vector<uint32_t> hooks;
    for (const HookCall& call : hookCalls)
    {
        hooks.push_back(call.hook);
    }
    return hooks;
}

/// Hooks of one table are called from one place, so whoever calls them has to clean up the stack after each.
void ExpectSameStackPointer()
{
    for (const HookCall& call : hookCalls)
    {
        EXPECT_EQ(hookCalls[0].stackPointer, call.stackPointer) << "Hook " << call.hook;
    }
}

uint32_t TextSize(const char* text)
{
    return static_cast<uint32_t>(strlen(text) + 1);
}

class CallHooksHost : public HostTest
{
protected:
    /// Publishes a table of hooks and waits until the Bridge half has had them called.
    bool Call(const Hook* hooks)
    {
        Publish("hooks", hooks);
        StartDefaultAgent();
        return Await("checked");
    }
};
} // namespace

HOST_TEST_OF(CallHooksHost, CallHooks, PassesANumberToKinds0And1)
{
    static const Hook hooks[] = {RecordingHook<0>};
    ASSERT_TRUE(Call(hooks));
    ASSERT_EQ(2u, hookCalls.size());
    for (const HookCall& call : hookCalls)
    {
        ExpectHookId(call);
        EXPECT_EQ("first", call.Text(1));
        EXPECT_EQ(number, call.arguments[2]);
    }
    EXPECT_EQ(2u, CountInLog("Processing Blob::CallHooks"));
}

HOST_TEST_OF(CallHooksHost, CallHooks, PassesTwoTextsToKinds2And3)
{
    static const Hook hooks[] = {RecordingHook<0>};
    ASSERT_TRUE(Call(hooks));
    ASSERT_EQ(2u, hookCalls.size());
    for (const HookCall& call : hookCalls)
    {
        ExpectHookId(call);
        EXPECT_EQ("first", call.Text(1));
        EXPECT_EQ("second", call.Text(2));
        EXPECT_EQ(call.arguments[1] + TextSize("first"), call.arguments[2]) << "Texts are used in place.";
    }
}

HOST_TEST_OF(CallHooksHost, CallHooks, PassesThreeTextsToKind4)
{
    static const Hook hooks[] = {RecordingHook<0>};
    ASSERT_TRUE(Call(hooks));
    ASSERT_EQ(1u, hookCalls.size());
    const HookCall& call = hookCalls[0];
    ExpectHookId(call);
    EXPECT_EQ("first", call.Text(1));
    EXPECT_EQ("second", call.Text(2));
    EXPECT_EQ("third", call.Text(3));
    EXPECT_EQ(call.arguments[1] + TextSize("first"), call.arguments[2]);
    EXPECT_EQ(call.arguments[2] + TextSize("second"), call.arguments[3]);
}

HOST_TEST_OF(CallHooksHost, CallHooks, PassesATextToKinds5And6)
{
    static const Hook hooks[] = {RecordingHook<0>};
    ASSERT_TRUE(Call(hooks));
    ASSERT_EQ(2u, hookCalls.size());
    for (const HookCall& call : hookCalls)
    {
        ExpectHookId(call);
        EXPECT_EQ("first", call.Text(1));
    }
}

HOST_TEST_OF(CallHooksHost, CallHooks, PassesItsOwnTextToKind7)
{
    static const Hook hooks[] = {RecordingHook<0>};
    ASSERT_TRUE(Call(hooks));
    ASSERT_EQ(1u, hookCalls.size());
    const HookCall& call = hookCalls[0];
    ExpectHookId(call);
    EXPECT_EQ("first", call.Text(1));
    EXPECT_EQ("seven", call.Text(2));
    EXPECT_EQ(call.arguments[1] + TextSize("first") + TextSize("second") + TextSize("third"),
              call.arguments[2]);
}

HOST_TEST_OF(CallHooksHost, CallHooks, PassesAListOfTextsToKinds8And9)
{
    static const Hook hooks[] = {RecordingHook<0>};
    ASSERT_TRUE(Call(hooks));
    ASSERT_EQ(2u, hookCalls.size());
    for (const HookCall& call : hookCalls)
    {
        ExpectHookId(call);
        EXPECT_EQ("first", call.Text(1));
        EXPECT_EQ(3u, call.arguments[3]);
        EXPECT_EQ(MakeTexts(3), call.listTexts);
        EXPECT_EQ(0u, call.arguments[4]);
        EXPECT_EQ(0u, call.arguments[5]);
        ASSERT_EQ(3u, call.list.size());
        EXPECT_EQ(call.list[0] + TextSize("text 0"), call.list[1]) << "Texts are used in place.";
    }
}

HOST_TEST_OF(CallHooksHost, CallHooks, PassesAnEmptyListAsNull)
{
    static const Hook hooks[] = {RecordingHook<0>, RecordingHook<1>};
    ASSERT_TRUE(Call(hooks));
    ASSERT_EQ(4u, hookCalls.size());
    for (const HookCall& call : hookCalls)
    {
        EXPECT_EQ("first", call.Text(1));
        for (uint32_t i = 2; i < 6; ++i)
        {
            EXPECT_EQ(0u, call.arguments[i]) << i;
        }
    }
}

HOST_TEST_OF(CallHooksHost, CallHooks, PassesALongListToEachHookOfTheTable)
{
    static const Hook hooks[] = {RecordingHook<0>, RecordingHook<1>};
    new BlockTrace(Library().Module()); // for the rest of the process
    ASSERT_TRUE(Call(hooks));
    ASSERT_EQ(2u, hookCalls.size());
    for (const HookCall& call : hookCalls)
    {
        EXPECT_EQ(1u, call.openLists);
        EXPECT_EQ(longListSize, call.arguments[3]);
        EXPECT_TRUE(call.listTexts == MakeTexts(longListSize));
    }
    EXPECT_EQ(hookCalls[0].arguments[2], hookCalls[1].arguments[2]) << "There is one array for all hooks,";
    const BlockTrace::Count lists = BlockTrace::CountBlocks(longListSize * sizeof(uint32_t));
    EXPECT_EQ((BlockTrace::Count{1, 0}), lists) << "and it is freed after the last one.";
}

HOST_TEST_OF(CallHooksHost, CallHooks, PassesNothingButTheHookIdToKinds10And11)
{
    static const Hook hooks[] = {RecordingHook<0>};
    ASSERT_TRUE(Call(hooks));
    ASSERT_EQ(2u, hookCalls.size());
    for (const HookCall& call : hookCalls)
    {
        ExpectHookId(call);
    }
}

HOST_TEST_OF(CallHooksHost, CallHooks, PassesTextsWithoutRegardToTheirWidth)
{
    static const Hook hooks[] = {RecordingHook<0>};
    ASSERT_TRUE(Call(hooks));
    ASSERT_EQ(1u, hookCalls.size());
    const HookCall& call = hookCalls[0];
    EXPECT_STREQ(L"wide \u20AC", reinterpret_cast<const wchar_t*>(call.bytes[1].data()));
    EXPECT_EQ("narrow", call.Text(2));
}

HOST_TEST_OF(CallHooksHost, CallHooks, SkipsWhatAKindDoesNotUse)
{
    static const Hook hooks[] = {RecordingHook<0>};
    ASSERT_TRUE(Call(hooks));
    ASSERT_EQ(8u, hookCalls.size());
    for (const HookCall& call : hookCalls)
    {
        EXPECT_EQ("first", call.Text(1));
    }
}

HOST_TEST_OF(CallHooksHost, CallHooks, CallsTheEntriesOfATableInOrderAndSkipsNullOnes)
{
    static const Hook hooks[] = {nullptr,          RecordingHook<1>, nullptr,          nullptr,
                                 RecordingHook<4>, RecordingHook<5>, RecordingHook<1>, nullptr};
    ASSERT_TRUE(Call(hooks));
    EXPECT_EQ((std::vector<uint32_t>{1, 4, 5, 1}), CalledHooks());
    ExpectSameStackPointer();
}

HOST_TEST_OF(CallHooksHost, CallHooks, CallsFromFirstUpToEnd)
{
    static const Hook hooks[] = {RecordingHook<0>, RecordingHook<1>, RecordingHook<2>, RecordingHook<3>};
    ASSERT_TRUE(Call(hooks));
    EXPECT_EQ((std::vector<uint32_t>{1, 2}), CalledHooks());
}

HOST_TEST_OF(CallHooksHost, CallHooks, CallsNothingOfAnEmptyTable)
{
    static const Hook hooks[] = {RecordingHook<0>};
    ASSERT_TRUE(Call(hooks));
    EXPECT_EQ(std::vector<uint32_t>(), CalledHooks());
    EXPECT_EQ(12u, CountInLog("Processing Blob::CallHooks"));
}

HOST_TEST_OF(CallHooksHost, CallHooks, CallsNothingOfAnUnknownKind)
{
    static const Hook hooks[] = {RecordingHook<0>};
    ASSERT_TRUE(Call(hooks));
    EXPECT_EQ(std::vector<uint32_t>(), CalledHooks());
    EXPECT_EQ(4u, CountInLog("Processing Blob::CallHooks"));
    ExpectNoErrorsInLog();
}

HOST_TEST_OF(CallHooksHost, CallHooks, CleansUpTheStackAfterEachHookOfEachKind)
{
    static const Hook hooks[] = {RecordingHook<0>, RecordingHook<1>, RecordingHook<2>};
    Publish("hooks", hooks);
    StartDefaultAgent();
    for (uint32_t kind = 0; kind <= 11; ++kind)
    {
        ASSERT_TRUE(Await("called " + std::to_string(kind)));
        EXPECT_EQ((std::vector<uint32_t>{0, 1, 2}), CalledHooks()) << "Kind " << kind;
        ExpectSameStackPointer();
        hookCalls.clear();
        Signal("checked " + std::to_string(kind));
    }
}

HOST_TEST_OF(CallHooksHost, CallHooks, GivesEachHookItsOwnArguments)
{
    static const Hook hooks[] = {ScribblingHook, RecordingHook<1>, ScribblingHook, RecordingHook<3>};
    ASSERT_TRUE(Call(hooks));
    EXPECT_EQ((std::vector<uint32_t>{1, 3}), CalledHooks());
    for (const HookCall& call : hookCalls)
    {
        ExpectHookId(call);
        EXPECT_EQ("first", call.Text(1));
        EXPECT_EQ("second", call.Text(2));
        EXPECT_EQ("third", call.Text(3));
    }
}

HOST_TEST_OF(CallHooksHost, CallHooks, CallsOnTheReceiverThread)
{
    static const Hook hooks[] = {RecordingHook<0>};
    ASSERT_TRUE(Call(hooks));
    ASSERT_EQ(1u, hookCalls.size());
    EXPECT_EQ(AwaitNumber("receiver thread"), hookCalls[0].threadId);
}

HOST_TEST_OF(CallHooksHost, CallHooks, IgnoresTheUpperHalvesOfAddresses)
{
    static const Hook hooks[] = {RecordingHook<0>, RecordingHook<1>};
    ASSERT_TRUE(Call(hooks));
    EXPECT_EQ((std::vector<uint32_t>{0, 1}), CalledHooks());
}

#else

namespace
{
constexpr uint32_t entrySize = 4;

HookArguments MakeArguments()
{
    HookArguments arguments;
    arguments.firstText = "first";
    arguments.number = number;
    arguments.secondText = "second";
    arguments.thirdText = "third";
    arguments.kind7Text = "seven";
    arguments.textList = MakeTexts(3);
    return arguments;
}

/// A table of one hook, with arguments of every sort.
bool CallOneHook(Link& link, uint32_t kind, AddressSlot hooks)
{
    return SendCallHooks(link, kind, hooks, hooks + entrySize, MakeArguments());
}

/// The host half continues when the Agent has executed everything, to which it sends no reply.
class CallHooksBridge : public ConnectedBridgeTest
{
protected:
    void SetUp() override
    {
        ConnectedBridgeTest::SetUp();
        hooks = AwaitNumber("hooks");
    }

    void TearDown() override
    {
        ExpectNoReply();
        ConnectedBridgeTest::TearDown();
    }

    AddressSlot hooks = 0;
};
} // namespace

/// Sends the same for each kind.
#define CALL_ONE_HOOK_SCENARIO(Name, ...)                \
    BRIDGE_SCENARIO_OF(CallHooksBridge, CallHooks, Name) \
    {                                                    \
        for (const uint32_t kind : {__VA_ARGS__})        \
        {                                                \
            EXPECT_TRUE(CallOneHook(link, kind, hooks)); \
        }                                                \
    }

CALL_ONE_HOOK_SCENARIO(PassesANumberToKinds0And1, 0u, 1u)
CALL_ONE_HOOK_SCENARIO(PassesTwoTextsToKinds2And3, 2u, 3u)
CALL_ONE_HOOK_SCENARIO(PassesThreeTextsToKind4, 4u)
CALL_ONE_HOOK_SCENARIO(PassesATextToKinds5And6, 5u, 6u)
CALL_ONE_HOOK_SCENARIO(PassesItsOwnTextToKind7, 7u)
CALL_ONE_HOOK_SCENARIO(PassesAListOfTextsToKinds8And9, 8u, 9u)
CALL_ONE_HOOK_SCENARIO(PassesNothingButTheHookIdToKinds10And11, 10u, 11u)
CALL_ONE_HOOK_SCENARIO(CallsNothingOfAnUnknownKind, 12u, 13u, 0x80000000u, 0xFFFFFFFFu)

BRIDGE_SCENARIO_OF(CallHooksBridge, CallHooks, PassesAnEmptyListAsNull)
{
    HookArguments arguments = MakeArguments();
    arguments.textList.clear();
    EXPECT_TRUE(SendCallHooks(link, 8, hooks, hooks + 2 * entrySize, arguments));
    EXPECT_TRUE(SendCallHooks(link, 9, hooks, hooks + 2 * entrySize, arguments));
}

BRIDGE_SCENARIO_OF(CallHooksBridge, CallHooks, PassesALongListToEachHookOfTheTable)
{
    HookArguments arguments = MakeArguments();
    arguments.textList = MakeTexts(longListSize);
    EXPECT_TRUE(SendCallHooks(link, 8, hooks, hooks + 2 * entrySize, arguments));
}

BRIDGE_SCENARIO_OF(CallHooksBridge, CallHooks, PassesTextsWithoutRegardToTheirWidth)
{
    BlobWriter<CallHooksBlob> blob;
    blob.fixed.kind = 2;
    blob.fixed.first = hooks;
    blob.fixed.end = blob.fixed.first + entrySize;
    blob.String(&CallHooksBlob::firstText, std::wstring(L"wide \u20AC"));
    blob.String(&CallHooksBlob::secondText, std::string("narrow"));
    EXPECT_TRUE(link.Send(blob.Finish()));
}

BRIDGE_SCENARIO_OF(CallHooksBridge, CallHooks, SkipsWhatAKindDoesNotUse)
{
    for (const uint32_t kind : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u})
    {
        BlobWriter<CallHooksBlob> blob;
        blob.fixed.kind = kind;
        blob.fixed.first = hooks;
        blob.fixed.end = blob.fixed.first + entrySize;
        blob.String(&CallHooksBlob::firstText, std::string("first"));
        blob.fixed.textList = {{0x7FFF0000}, 0x7FFFFFFF};
        EXPECT_TRUE(link.Send(blob.Finish()));
    }
}

BRIDGE_SCENARIO_OF(CallHooksBridge, CallHooks, CallsTheEntriesOfATableInOrderAndSkipsNullOnes)
{
    EXPECT_TRUE(SendCallHooks(link, 5, hooks, hooks + 8 * entrySize, MakeArguments()));
}

BRIDGE_SCENARIO_OF(CallHooksBridge, CallHooks, CallsFromFirstUpToEnd)
{
    EXPECT_TRUE(SendCallHooks(link, 10, hooks + entrySize, hooks + 3 * entrySize));
}

BRIDGE_SCENARIO_OF(CallHooksBridge, CallHooks, CallsNothingOfAnEmptyTable)
{
    for (uint32_t kind = 0; kind <= 11; ++kind)
    {
        EXPECT_TRUE(SendCallHooks(link, kind, hooks, hooks, MakeArguments()));
    }
}

BRIDGE_SCENARIO_OF(CallHooksBridge, CallHooks, CleansUpTheStackAfterEachHookOfEachKind)
{
    for (uint32_t kind = 0; kind <= 11; ++kind)
    {
        EXPECT_TRUE(SendCallHooks(link, kind, hooks, hooks + 3 * entrySize, MakeArguments()));
        ASSERT_TRUE(Fence());
        Signal("called " + std::to_string(kind));
        ASSERT_TRUE(Await("checked " + std::to_string(kind)));
    }
}

BRIDGE_SCENARIO_OF(CallHooksBridge, CallHooks, GivesEachHookItsOwnArguments)
{
    EXPECT_TRUE(SendCallHooks(link, 4, hooks, hooks + 4 * entrySize, MakeArguments()));
}

BRIDGE_SCENARIO_OF(CallHooksBridge, CallHooks, CallsOnTheReceiverThread)
{
    EXPECT_TRUE(CallOneHook(link, 10, hooks));
    Publish("receiver thread", process->receiverThreadId);
}

BRIDGE_SCENARIO_OF(CallHooksBridge, CallHooks, IgnoresTheUpperHalvesOfAddresses)
{
    EXPECT_TRUE(
        SendCallHooks(link, 10, hooks | 0x1234567800000000, (hooks + 2 * entrySize) | 0x8765432100000000));
}

#endif
