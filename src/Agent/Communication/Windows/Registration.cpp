#include "Agent/Communication/Windows/Registration.h"

#include "Agent/Modules/Windows/ExecutableIdentity.h"
#include "Agent/Protocol/HostAddress.h"
#include "Shared/Executable/Windows/PE.h"
#include "Shared/Filesystem/Windows/Filesystem.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Process/Windows/ProcessHeap.h"
#include "Shared/Process/Windows/ProcessLoaderLock.h"
#include "Shared/Process/Windows/SpinForever.h"
#include "Shared/System/Windows/System.h"

namespace Torvane
{
namespace
{
FixedWideString MakeAbsolute(const wchar_t* path)
{
    FixedWideString absolute = {};
    if (path[0] != L'\0' && path[1] != L':')
    {
        const FixedWideString executable = GetExecutablePath();
        absolute = GetDirectory(executable.text, executable.length);
        absolute.Append(L"\\");
    }
    absolute.Append(path);
    return NormalizePath(absolute.text);
}

OwnedBlob BuildFromFile(const wchar_t* path)
{
    const FixedWideString absolute = MakeAbsolute(path);
    RecordBuilder<ProjectPreferencesRecord> builder(MeasureText(absolute.text));
    builder.AppendText(builder.Fixed().projectPreferencesFile, absolute.text);
    builder.Fixed().fromFile = 1;
    return builder.Finish();
}

void CopyValues(const TvnProjectPreferences& host, ProjectPreferencesRecord& wire)
{
    wire.flag00 = host.flag00;
    wire.flag01 = host.flag01;
    wire.flag14 = host.flag14;
    wire.flag24 = host.flag24;
    wire.flag25 = host.flag25;
    wire.flag26 = host.flag26;
    wire.flag30 = host.flag30;
    wire.flag31 = host.flag31;
    wire.flag32 = host.flag32;
    wire.flag33 = host.flag33;
    wire.flag34 = host.flag34;
    wire.flag35 = host.flag35;
    wire.flag40 = host.flag40;
    wire.flag41 = host.flag41;
    wire.flag42 = host.flag42;
    wire.flag43 = host.flag43;
    wire.flag44 = host.flag44;
    wire.flag54 = host.flag54;
    wire.flag60 = host.flag60;
    wire.flag6C = host.flag6C;
    wire.number10 = host.number10;
    wire.number48 = host.number48;
    wire.number50 = host.number50;
    wire.number68 = host.number68;
}

/// In ascending order of the fields, which is the order of the items.
void AppendTexts(const TvnProjectPreferences& host, RecordBuilder<ProjectPreferencesRecord>& builder)
{
    ProjectPreferencesRecord& wire = builder.Fixed();
    builder.AppendText(wire.directoryToBroker, host.directoryToBroker);
    builder.AppendText(wire.text08, host.text08);
    builder.AppendText(wire.text0C, host.text0C);
    builder.AppendText(wire.wideText18, host.wideText18);
    builder.AppendText(wire.wideText1C, host.wideText1C);
    builder.AppendText(wire.text20, host.text20);
    builder.AppendText(wire.wideText28, host.wideText28);
    builder.AppendText(wire.text2C, host.text2C);
    builder.AppendText(wire.wideText38, host.wideText38);
    builder.AppendText(wire.text3C, host.text3C);
    builder.AppendText(wire.wideText4C, host.wideText4C);
    builder.AppendText(wire.text58, host.text58);
    builder.AppendText(wire.wideText5C, host.wideText5C);
    builder.AppendText(wire.text64, host.text64);
}

uint32_t MeasureTexts(const TvnProjectPreferences& host)
{
    return MeasureText(host.directoryToBroker) + MeasureText(host.text08) + MeasureText(host.text0C) +
           MeasureText(host.wideText18) + MeasureText(host.wideText1C) + MeasureText(host.text20) +
           MeasureText(host.wideText28) + MeasureText(host.text2C) + MeasureText(host.wideText38) +
           MeasureText(host.text3C) + MeasureText(host.wideText4C) + MeasureText(host.text58) +
           MeasureText(host.wideText5C) + MeasureText(host.text64);
}

OwnedBlob BuildFromRecord(const TvnProjectPreferences& host)
{
    RecordBuilder<ProjectPreferencesRecord> builder(MeasureTexts(host));
    CopyValues(host, builder.Fixed());
    AppendTexts(host, builder);
    builder.Fixed().fromRecord = 1;
    return builder.Finish();
}
} // namespace

OwnedBlob BuildRegisterProjectPreferences(const wchar_t* path, const TvnProjectPreferences* record)
{
    if (path != nullptr)
    {
        return BuildFromFile(path);
    }
    if (record != nullptr)
    {
        return BuildFromRecord(*record);
    }
    return RecordBuilder<ProjectPreferencesRecord>().Finish();
}

OwnedBlob BuildRegisterAgent(uint32_t agentType)
{
    const OSVERSIONINFOW& os = GetOSVersion();
    FixedString version = {};
    version.Format("%u.%u, %u", os.dwMajorVersion, os.dwMinorVersion, os.dwBuildNumber);
    RecordBuilder<RegisterAgentBlob> builder(MeasureText(version.text));
    builder.Fixed().agentType = agentType;
    builder.AppendText(builder.Fixed().osVersion, version.text);
    return builder.Finish();
}

OwnedBlob BuildRegisterProcess(const AgentThreadIds& threads)
{
    const FixedWideString executable = GetExecutablePath();
    Result<ImageFile> image = OpenImage(executable.text);
    if (image.error != nullptr)
    {
        LogError(TVN_HERE, "Failed to open executable %ls", executable.text);
        return {};
    }
    const ExecutableIdentity identity = ReadExecutableIdentity(image.payload);
    CloseImage(image.payload);

    void* loaderLock = GetLoaderLock();
    void* processHeapLock = GetProcessHeapLock();
    const wchar_t* commandLine = GetCommandLineW();
    RecordBuilder<RegisterProcessBlob> builder(MeasureText(executable.text) + MeasureText(commandLine));
    RegisterProcessBlob& fixed = builder.Fixed();
    fixed.executable = identity;
    fixed.processId = GetCurrentProcessId();
    fixed.senderThreadId = threads.sender;
    fixed.receiverThreadId = threads.receiver;
    fixed.heartbeatThreadId = threads.heartbeat;
    fixed.watchdogThreadId = threads.watchdog;
    fixed.spinForever = reinterpret_cast<uintptr_t>(&SpinForever);
    fixed.loaderLock = ToSlot(loaderLock);
    fixed.processHeapLock = ToSlot(processHeapLock);
    builder.AppendText(fixed.executablePath, executable.text);
    builder.AppendText(fixed.commandLine, commandLine);
    return builder.Finish();
}
} // namespace Torvane
