#include "bridge/Recording/BlobLayout.h"

#include "bridge/Recording/EventFields.h"
#include "bridge/Recording/MemoryFields.h"
#include "bridge/Recording/RegistrationFields.h"

namespace Torvane::Bridge
{
namespace
{
constexpr BlobLayout layouts[] = {
    {BlobType::Version, "Version", BlobSender::Both, &versionLayout},
    {BlobType::RegisterAgent, "RegisterAgent", BlobSender::Agent, &registerAgentLayout},
    {BlobType::RegisterProcess, "RegisterProcess", BlobSender::Agent, &registerProcessLayout},
    {BlobType::RegisterProjectPreferences, "RegisterProjectPreferences", BlobSender::Agent,
     &projectPreferencesLayout},
    {BlobType::LogNarrow, "LogNarrow", BlobSender::Both, &logNarrowLayout},
    {BlobType::LogWide, "LogWide", BlobSender::Both, &logWideLayout},
    {BlobType::EnableModules, "EnableModules", BlobSender::Agent, &enableModulesLayout},
    {BlobType::DisableModules, "DisableModules", BlobSender::Agent, &disableModulesLayout},
    {BlobType::LoadPatchWindows, "LoadPatchWindows", BlobSender::Bridge, &loadPatchWindowsLayout},
    {BlobType::PatchLoaded, "PatchLoaded", BlobSender::Agent, &patchLoadedLayout},
    {BlobType::UnloadPatch, "UnloadPatch", BlobSender::Bridge, &unloadPatchLayout},
    {BlobType::CallHooks, "CallHooks", BlobSender::Bridge, &callHooksLayout},
    {BlobType::ReadMemory, "ReadMemory", BlobSender::Bridge, &readMemoryLayout},
    {BlobType::ReadMemoryResult, "ReadMemoryResult", BlobSender::Agent, &readMemoryResultLayout},
    {BlobType::WriteMemory, "WriteMemory", BlobSender::Bridge, &writeMemoryLayout},
    {CopyMemoryBlob::type, "CopyMemory", BlobSender::Bridge, &copyMemoryLayout},
    {BlobType::SetPageProtectionWindows, "SetPageProtectionWindows", BlobSender::Bridge,
     &setPageProtectionWindowsLayout},
    {BlobType::CallEntryPoint, "CallEntryPoint", BlobSender::Bridge, &callEntryPointLayout},
    {BlobType::FlushInstructionCache, "FlushInstructionCache", BlobSender::Bridge, nullptr},
    {BlobType::FinishAfterHotReload, "FinishAfterHotReload", BlobSender::Bridge, nullptr},
    {BlobType::RequestReload, "RequestReload", BlobSender::Bridge, nullptr},
    {BlobType::ScheduleReload, "ScheduleReload", BlobSender::Agent, &unwrittenLayout},
    {BlobType::Reload, "Reload", BlobSender::Agent, &reloadLayout},
    {BlobType::ResumeHeldThreads, "ResumeHeldThreads", BlobSender::Agent, &unwrittenLayout},
    {BlobType::SuspendHeldThreads, "SuspendHeldThreads", BlobSender::Agent, &unwrittenLayout},
    {BlobType::RequestRestart, "RequestRestart", BlobSender::Bridge, nullptr},
    {BlobType::ScheduleRestart, "ScheduleRestart", BlobSender::Agent, &scheduleRestartLayout},
    {BlobType::Restart, "Restart", BlobSender::Agent, &restartLayout},
    {BlobType::ExitProcessForHotRestart, "ExitProcessForHotRestart", BlobSender::Bridge,
     &exitProcessForHotRestartLayout},
    {BlobType::InstallExceptionHandler, "InstallExceptionHandler", BlobSender::Bridge,
     &installExceptionHandlerLayout},
    {BlobType::HandleExceptionWindows, "HandleExceptionWindows", BlobSender::Agent,
     &handleExceptionWindowsLayout},
    {BlobType::HandleExceptionWindowsResult, "HandleExceptionWindowsResult", BlobSender::Bridge,
     &handleExceptionWindowsResultLayout},
    {BlobType::SetBoolPreferences, "SetBoolPreferences", BlobSender::Agent, &setBoolPreferencesLayout},
    {BlobType::SetIntPreferences, "SetIntPreferences", BlobSender::Agent, &setIntPreferencesLayout},
    {BlobType::SetStringPreferences, "SetStringPreferences", BlobSender::Agent, &setStringPreferencesLayout},
    {BlobType::SetShortcutPreferences, "SetShortcutPreferences", BlobSender::Agent,
     &setShortcutPreferencesLayout},
    {BlobType::DecrementLatch, "DecrementLatch", BlobSender::Bridge, &decrementLatchLayout},
    {BlobType::EchoRequest, "EchoRequest", BlobSender::Bridge, &echoRequestLayout},
    {BlobType::EchoReply, "EchoReply", BlobSender::Agent, &echoReplyLayout},
    {BlobType::Synchronize, "Synchronize", BlobSender::Bridge, nullptr},
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
        return "inline ANSI string";
    case FieldKind::InlineWideText:
        return "inline UTF-16 string";
    case FieldKind::Record:
        return "record";
    case FieldKind::AnsiString:
        return "ANSI string";
    case FieldKind::Utf16String:
        return "UTF-16 string";
    case FieldKind::Data:
        return "data";
    case FieldKind::AddressList:
        return "addresses";
    case FieldKind::NumberList:
        return "numbers";
    case FieldKind::StringList:
        return "strings";
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
