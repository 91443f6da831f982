#include "Agent/Communication/Windows/Registration.h"

#include "Agent/Agent_Windows.h"
#include "Agent/Modules/Windows/ExecutableIdentity.h"
#include "Agent/Protocol/BlobBuilder.h"
#include "Shared/Executable/Windows/PE.h"
#include "Shared/Filesystem/Windows/Filesystem.h"
#include "Shared/Foundation/Logger.h"
#include "Shared/Process/Windows/ProcessHeap.h"
#include "Shared/Process/Windows/ProcessLoaderLock.h"
#include "Shared/Process/Windows/SpinForever.h"

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

Allocation BuildFromFile(const wchar_t* path)
{
    const FixedWideString absolute = MakeAbsolute(path);
    RecordBuilder<ProjectPreferencesRecord> builder(MeasureText(absolute.text));
    builder.AppendText(builder.Fixed().projectPreferencesFile, absolute.text);
    builder.Fixed().fromFile = 1;
    return builder.Finish();
}

struct WideTextRow
{
    RelativeOffset ProjectPreferencesRecord::*field;
    const wchar_t* TvnProjectPreferences::*text;
};

struct NarrowTextRow
{
    RelativeOffset ProjectPreferencesRecord::*field;
    const char* TvnProjectPreferences::*text;
};

struct FlagRow
{
    uint8_t ProjectPreferencesRecord::*field;
    bool TvnProjectPreferences::*flag;
};

struct NumberRow
{
    uint32_t ProjectPreferencesRecord::*field;
    uint32_t TvnProjectPreferences::*number;
};

using Wire = ProjectPreferencesRecord;
using Host = TvnProjectPreferences;

constexpr FlagRow flagRows[] = {
    {&Wire::flag00, &Host::flag00}, {&Wire::flag01, &Host::flag01}, {&Wire::flag14, &Host::flag14},
    {&Wire::flag24, &Host::flag24}, {&Wire::flag25, &Host::flag25}, {&Wire::flag26, &Host::flag26},
    {&Wire::flag30, &Host::flag30}, {&Wire::flag31, &Host::flag31}, {&Wire::flag32, &Host::flag32},
    {&Wire::flag33, &Host::flag33}, {&Wire::flag34, &Host::flag34}, {&Wire::flag35, &Host::flag35},
    {&Wire::flag40, &Host::flag40}, {&Wire::flag41, &Host::flag41}, {&Wire::flag42, &Host::flag42},
    {&Wire::flag43, &Host::flag43}, {&Wire::flag44, &Host::flag44}, {&Wire::flag54, &Host::flag54},
    {&Wire::flag60, &Host::flag60}, {&Wire::flag6C, &Host::flag6C},
};

constexpr NumberRow numberRows[] = {
    {&Wire::number10, &Host::number10},
    {&Wire::number48, &Host::number48},
    {&Wire::number50, &Host::number50},
    {&Wire::number68, &Host::number68},
};

/// One text of the record, wide or narrow: the other member is null.
struct TextRow
{
    WideTextRow wide;
    NarrowTextRow narrow;
};

constexpr TextRow WideText(RelativeOffset Wire::*field, const wchar_t* Host::*text)
{
    return {{field, text}, {nullptr, nullptr}};
}

constexpr TextRow NarrowText(RelativeOffset Wire::*field, const char* Host::*text)
{
    return {{nullptr, nullptr}, {field, text}};
}

/// In ascending order of the fields, which is the order of the items.
constexpr TextRow textRows[] = {
    WideText(&Wire::directoryToBroker, &Host::directoryToBroker),
    NarrowText(&Wire::text08, &Host::text08),
    NarrowText(&Wire::text0C, &Host::text0C),
    WideText(&Wire::wideText18, &Host::wideText18),
    WideText(&Wire::wideText1C, &Host::wideText1C),
    NarrowText(&Wire::text20, &Host::text20),
    WideText(&Wire::wideText28, &Host::wideText28),
    NarrowText(&Wire::text2C, &Host::text2C),
    WideText(&Wire::wideText38, &Host::wideText38),
    NarrowText(&Wire::text3C, &Host::text3C),
    WideText(&Wire::wideText4C, &Host::wideText4C),
    NarrowText(&Wire::text58, &Host::text58),
    WideText(&Wire::wideText5C, &Host::wideText5C),
    NarrowText(&Wire::text64, &Host::text64),
};

uint32_t MeasureTexts(const Host& record)
{
    uint32_t size = 0;
    for (const TextRow& row : textRows)
    {
        size += row.wide.text != nullptr ? MeasureText(record.*row.wide.text)
                                         : MeasureText(record.*row.narrow.text);
    }
    return size;
}

Allocation BuildFromRecord(const Host& record)
{
    RecordBuilder<Wire> builder(MeasureTexts(record));
    Wire& fixed = builder.Fixed();
    for (const FlagRow& row : flagRows)
    {
        fixed.*row.field = record.*row.flag ? 1 : 0;
    }
    for (const NumberRow& row : numberRows)
    {
        fixed.*row.field = record.*row.number;
    }
    for (const TextRow& row : textRows)
    {
        if (row.wide.text != nullptr)
        {
            builder.AppendText(fixed.*row.wide.field, record.*row.wide.text);
        }
        else
        {
            builder.AppendText(fixed.*row.narrow.field, record.*row.narrow.text);
        }
    }
    fixed.fromRecord = 1;
    return builder.Finish();
}
} // namespace

Allocation BuildRegisterProjectPreferences(const wchar_t* path, const TvnProjectPreferences* record)
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

Allocation BuildRegisterAgent(uint32_t agentType)
{
    FixedString version = {};
    version.Format("%u.%u, %u", osVersion.dwMajorVersion, osVersion.dwMinorVersion, osVersion.dwBuildNumber);
    RecordBuilder<RegisterAgentBlob> builder(MeasureText(version.text));
    builder.Fixed().agentType = agentType;
    builder.AppendText(builder.Fixed().osVersion, version.text);
    return builder.Finish();
}

bool BuildRegisterProcess(const AgentThreadIds& threads, Allocation& blob)
{
    const FixedWideString executable = GetExecutablePath();
    Result<ImageFile> image = OpenImage(executable.text);
    if (image.error != nullptr)
    {
        LogError(TVN_HERE, "Failed to open executable %ls", executable.text);
        return false;
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
    fixed.loaderLock = reinterpret_cast<uintptr_t>(loaderLock);
    fixed.processHeapLock = reinterpret_cast<uintptr_t>(processHeapLock);
    builder.AppendText(fixed.executablePath, executable.text);
    builder.AppendText(fixed.commandLine, commandLine);
    blob = builder.Finish();
    return true;
}
} // namespace Torvane
