#include "bridge/Recording/BlobLayout.h"

#include "bridge/Recording/EventFields.h"
#include "bridge/Recording/MemoryFields.h"
#include "bridge/Recording/RegistrationFields.h"

namespace Torvane::Bridge
{
namespace
{
constexpr BlobLayout layouts[] = {
    {BlobType::Version, "Version", BlobWay::Both, &versionLayout},
    {BlobType::RegisterAgent, "RegisterAgent", BlobWay::FromAgent, &registerAgentLayout},
    {BlobType::RegisterProcess, "RegisterProcess", BlobWay::FromAgent, &registerProcessLayout},
    {BlobType::RegisterProjectPreferences, "RegisterProjectPreferences", BlobWay::FromAgent,
     &projectPreferencesLayout},
    {BlobType::LogNarrow, "LogNarrow", BlobWay::Both, &logNarrowLayout},
    {BlobType::LogWide, "LogWide", BlobWay::Both, &logWideLayout},
    {BlobType::EnableModules, "EnableModules", BlobWay::FromAgent, &enableModulesLayout},
    {BlobType::DisableModules, "DisableModules", BlobWay::FromAgent, &disableModulesLayout},
    {BlobType::LoadPatchWindows, "LoadPatchWindows", BlobWay::ToAgent, &loadPatchWindowsLayout},
    {BlobType::PatchLoaded, "PatchLoaded", BlobWay::FromAgent, &patchLoadedLayout},
    {BlobType::UnloadPatch, "UnloadPatch", BlobWay::ToAgent, &unloadPatchLayout},
    {BlobType::CallHooks, "CallHooks", BlobWay::ToAgent, &callHooksLayout},
    {BlobType::ReadMemory, "ReadMemory", BlobWay::ToAgent, &readMemoryLayout},
    {BlobType::ReadMemoryResult, "ReadMemoryResult", BlobWay::FromAgent, &readMemoryResultLayout},
    {BlobType::WriteMemory, "WriteMemory", BlobWay::ToAgent, &writeMemoryLayout},
    {CopyMemoryBlob::type, "CopyMemory", BlobWay::ToAgent, &copyMemoryLayout},
    {BlobType::SetPageProtectionWindows, "SetPageProtectionWindows", BlobWay::ToAgent,
     &setPageProtectionWindowsLayout},
    {BlobType::CallEntryPoint, "CallEntryPoint", BlobWay::ToAgent, &callEntryPointLayout},
    {BlobType::FlushInstructionCache, "FlushInstructionCache", BlobWay::ToAgent, nullptr},
    {BlobType::FinishAfterHotReload, "FinishAfterHotReload", BlobWay::ToAgent, nullptr},
    {BlobType::RequestReload, "RequestReload", BlobWay::ToAgent, nullptr},
    {BlobType::ScheduleReload, "ScheduleReload", BlobWay::FromAgent, &unwrittenLayout},
    {BlobType::Reload, "Reload", BlobWay::FromAgent, &reloadLayout},
    {BlobType::ResumeHeldThreads, "ResumeHeldThreads", BlobWay::FromAgent, &unwrittenLayout},
    {BlobType::SuspendHeldThreads, "SuspendHeldThreads", BlobWay::FromAgent, &unwrittenLayout},
    {BlobType::RequestRestart, "RequestRestart", BlobWay::ToAgent, nullptr},
    {BlobType::ScheduleRestart, "ScheduleRestart", BlobWay::FromAgent, &scheduleRestartLayout},
    {BlobType::Restart, "Restart", BlobWay::FromAgent, &restartLayout},
    {BlobType::ExitProcessForHotRestart, "ExitProcessForHotRestart", BlobWay::ToAgent,
     &exitProcessForHotRestartLayout},
    {BlobType::InstallExceptionHandler, "InstallExceptionHandler", BlobWay::ToAgent,
     &installExceptionHandlerLayout},
    {BlobType::HandleExceptionWindows, "HandleExceptionWindows", BlobWay::FromAgent,
     &handleExceptionWindowsLayout},
    {BlobType::HandleExceptionWindowsResult, "HandleExceptionWindowsResult", BlobWay::ToAgent,
     &handleExceptionWindowsResultLayout},
    {BlobType::SetBoolPreferences, "SetBoolPreferences", BlobWay::FromAgent, &setBoolPreferencesLayout},
    {BlobType::SetIntPreferences, "SetIntPreferences", BlobWay::FromAgent, &setIntPreferencesLayout},
    {BlobType::SetStringPreferences, "SetStringPreferences", BlobWay::FromAgent, &setStringPreferencesLayout},
    {BlobType::SetShortcutPreferences, "SetShortcutPreferences", BlobWay::FromAgent,
     &setShortcutPreferencesLayout},
    {BlobType::DecrementLatch, "DecrementLatch", BlobWay::ToAgent, &decrementLatchLayout},
    {BlobType::EchoRequest, "EchoRequest", BlobWay::ToAgent, &echoRequestLayout},
    {BlobType::EchoReply, "EchoReply", BlobWay::FromAgent, &echoReplyLayout},
    {BlobType::Synchronize, "Synchronize", BlobWay::ToAgent, nullptr},
};
constexpr size_t layoutCount = sizeof(layouts) / sizeof(layouts[0]);

constexpr bool AreAscending()
{
    for (size_t i = 1; i < layoutCount; ++i)
    {
        if (layouts[i].type <= layouts[i - 1].type)
        {
            return false;
        }
    }
    return static_cast<uint32_t>(layouts[layoutCount - 1].type) < blobTypeCount;
}
static_assert(AreAscending());
} // namespace

const char* KindName(FieldKind kind)
{
    switch (kind)
    {
    case FieldKind::Padding:
        return "padding";
    case FieldKind::Bytes:
        return "bytes";
    case FieldKind::Flag:
        return "flag";
    case FieldKind::Number:
        return "number";
    case FieldKind::SignedNumber:
        return "signed number";
    case FieldKind::Hexadecimal:
        return "hexadecimal";
    case FieldKind::Address:
        return "address";
    case FieldKind::InlineText:
        return "inline text";
    case FieldKind::InlineWideText:
        return "inline wide text";
    case FieldKind::Record:
        return "record";
    case FieldKind::NarrowText:
        return "narrow text";
    case FieldKind::WideText:
        return "wide text";
    case FieldKind::Data:
        return "data";
    case FieldKind::AddressList:
        return "addresses";
    case FieldKind::NumberList:
        return "numbers";
    case FieldKind::TextList:
        return "texts";
    case FieldKind::RecordList:
        return "records";
    }
    return "";
}

BlobLayoutList AllBlobLayouts()
{
    return {layouts, layoutCount};
}

const BlobLayout* FindBlobLayout(BlobType type)
{
    for (const BlobLayout& layout : layouts)
    {
        if (layout.type == type)
        {
            return &layout;
        }
    }
    return nullptr;
}

std::string BlobName(BlobType type)
{
    const BlobLayout* layout = FindBlobLayout(type);
    return layout != nullptr ? layout->name : "Blob " + std::to_string(static_cast<uint32_t>(type));
}
} // namespace Torvane::Bridge
