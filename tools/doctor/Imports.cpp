#include "tools/doctor/Imports.h"

#include "bridge/Text.h"
#include "tools/doctor/Image.h"

#include <set>
#include <string.h>
#include <windows.h>

namespace Torvane::Doctor
{
namespace
{
using Bridge::Utf8;

/// Names of runtime libraries that don't come with the OS, by how they begin and end.
struct RuntimeLibrary
{
    const char* start;
    const char* end;
    Finding missing;
};

/// The first row that fits is used.
constexpr RuntimeLibrary runtimeLibraries[] = {
    {"libgcc_s_", ".dll", Finding::ImportMissingMinGW},
    {"libstdc++-", ".dll", Finding::ImportMissingMinGW},
    {"libwinpthread-", ".dll", Finding::ImportMissingMinGW},
    {"libssp-", ".dll", Finding::ImportMissingMinGW},
    {"libc++", ".dll", Finding::ImportMissingMinGW},
    {"libunwind", ".dll", Finding::ImportMissingMinGW},
    {"vcruntime", "d.dll", Finding::ImportMissingDebug},
    {"msvcp", "d.dll", Finding::ImportMissingDebug},
    {"ucrtbased", ".dll", Finding::ImportMissingDebug},
    {"vcruntime", ".dll", Finding::ImportMissingVisualC},
    {"msvcp", ".dll", Finding::ImportMissingVisualC},
    {"msvcr", ".dll", Finding::ImportMissingVisualC},
    {"concrt", ".dll", Finding::ImportMissingVisualC},
    {"mfc", ".dll", Finding::ImportMissingVisualC},
};

std::string LowerCase(std::string name)
{
    for (char& character : name)
    {
        character =
            character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A')) : character;
    }
    return name;
}

bool StartsWith(const std::string& name, const char* start)
{
    return name.compare(0, strlen(start), start) == 0;
}

bool EndsWith(const std::string& name, const char* end)
{
    return name.size() >= strlen(end) && name.compare(name.size() - strlen(end), strlen(end), end) == 0;
}

Finding ChooseFinding(const std::string& name)
{
    for (const RuntimeLibrary& library : runtimeLibraries)
    {
        if (StartsWith(name, library.start) && EndsWith(name, library.end))
        {
            return library.missing;
        }
    }
    return Finding::ImportMissing;
}

/// Names of sets of the OS's functions, which the loader resolves without a file of that name.
bool IsFunctionSet(const std::string& name)
{
    return StartsWith(name, "api-") || StartsWith(name, "ext-");
}

class ImportCheck
{
public:
    ImportCheck(const std::wstring& folder, bool is64Bit, Report& target)
        : programFolder(folder)
        , search(folder, is64Bit)
        , report(target)
    {
    }

    /// \return whether all is found.
    bool Check(const std::wstring& path, const Image& image)
    {
        bool allFound = true;
        for (const std::string& import : image.imports)
        {
            const std::string name = LowerCase(import);
            if (name == "tvn_agent_x86.dll" || IsFunctionSet(name) || !checked.insert(name).second)
            {
                continue;
            }
            std::wstring ofOtherSize;
            const std::wstring found = search.Find(Widen(import), ofOtherSize);
            if (found.empty())
            {
                ReportMissing(path, import, ofOtherSize);
                allFound = false;
            }
            else if (!search.IsOfSystem(found))
            {
                allFound = Check(found, ReadImage(found)) && allFound;
            }
        }
        return allFound;
    }

private:
    void ReportMissing(const std::wstring& path, const std::string& import, const std::wstring& ofOtherSize)
    {
        if (ofOtherSize.empty())
        {
            report.Add(ChooseFinding(LowerCase(import)), {Utf8(path), import, Utf8(programFolder)});
        }
        else
        {
            report.Add(Finding::ImportOfOtherSize,
                       {Utf8(path), import, Utf8(ofOtherSize), Utf8(programFolder)});
        }
    }

    std::wstring programFolder;
    LibrarySearch search;
    Report& report;
    std::set<std::string> checked;
};
} // namespace

void CheckImports(const std::wstring& path, const std::wstring& programFolder, Report& report)
{
    const Image image = ReadImage(path);
    if (ImportCheck(programFolder, image.Is64Bit(), report).Check(path, image))
    {
        report.Add(Finding::ImportsOk, {Utf8(path)});
    }
}
} // namespace Torvane::Doctor
