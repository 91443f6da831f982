#include "Shared/Process/Windows/ProcessModules.h"

#include "tests/Support/LogLine.h"
#include "tests/Support/RecordedHeapCalls.h"
#include "tests/Support/RecordedLog.h"
#include "tests/Support/TestLibraries.h"
#include "tests/Support/TestMemorySystem.h"

#include <algorithm>
#include <map>
#include <set>
#include <stddef.h>

#include <gtest/gtest.h>

namespace Torvane::Testing
{
namespace
{
using Names = std::vector<std::string>;

class ProcessModulesTest : public testing::Test
{
protected:
    static std::string FileNameOf(const ModuleIdentity& module)
    {
        const std::wstring path = module.path.text;
        const std::wstring name = path.substr(path.find_last_of(L'\\') + 1);
        return std::string(name.begin(), name.end());
    }

    static ModuleIdentityList Gather(const std::vector<std::wstring>& starts)
    {
        std::vector<const wchar_t*> pointers;
        for (const std::wstring& start : starts)
        {
            pointers.push_back(start.c_str());
        }
        return GatherImportClosure(pointers.data(), static_cast<uint32_t>(pointers.size()));
    }

    /// The file names of a closure, in its order.
    static Names GatherNames(const std::vector<std::wstring>& starts)
    {
        const ModuleIdentityList modules = Gather(starts);
        Names names;
        for (const ModuleIdentity& module : modules)
        {
            names.push_back(FileNameOf(module));
        }
        return names;
    }

    static std::wstring ExecutablePath()
    {
        wchar_t path[MAX_PATH] = {};
        GetModuleFileNameW(nullptr, path, MAX_PATH);
        return path;
    }

    std::vector<std::string> Errors() const
    {
        std::vector<std::string> errors;
        for (const std::string& line : log.GetLines())
        {
            if (line.compare(0, 3, "ERR") == 0)
            {
                errors.push_back(line);
            }
        }
        return errors;
    }

    TestMemorySystem memory;
    RecordedLog log;
    TestLibraries libraries;
};
} // namespace

TEST_F(ProcessModulesTest, DescribesALoadedModule)
{
    ASSERT_TRUE(libraries.Write("TvnA.dll", {}, 0x7000));
    const HMODULE module = libraries.Load("TvnA.dll");
    ASSERT_NE(module, nullptr);
    const ModuleIdentity identity = GetModuleIdentity(module);
    EXPECT_EQ(std::wstring(identity.path.text), libraries.PathOf("TvnA.dll"));
    EXPECT_EQ(identity.path.length, libraries.PathOf("TvnA.dll").size());
    EXPECT_EQ(identity.base, reinterpret_cast<uintptr_t>(module));
    EXPECT_EQ(identity.imageSize, 0x7000u);
    EXPECT_EQ(identity.padding804, 0u);
    EXPECT_EQ(identity.padding814, 0u);
    for (uint32_t i = identity.path.length; i < 1024; ++i)
    {
        ASSERT_EQ(identity.path.text[i], L'\0') << i;
    }
}

TEST_F(ProcessModulesTest, DescribesAHandleThatIsNoModuleByNothingButItself)
{
    const ModuleIdentity identity = GetModuleIdentity(reinterpret_cast<HMODULE>(uintptr_t{0x10}));
    EXPECT_EQ(identity.path.length, 0u);
    EXPECT_EQ(identity.path.text[0], L'\0');
    EXPECT_EQ(identity.base, 0x10u);
    EXPECT_EQ(identity.imageSize, 0u);
    EXPECT_TRUE(log.GetLines().empty());
}

TEST_F(ProcessModulesTest, GathersNothingFromNoNames)
{
    const ModuleIdentityList modules = GatherImportClosure(nullptr, 0);
    EXPECT_EQ(modules.count, 0u);
    EXPECT_EQ(modules.capacity, 1024u);
    EXPECT_TRUE(log.GetLines().empty());
}

TEST_F(ProcessModulesTest, TakesImportsDepthFirstAndTheLastOneFirst)
{
    ASSERT_TRUE(libraries.Write("TvnA.dll", {{"TvnB.dll"}, {"TvnC.dll"}, {"TvnD.dll"}}));
    ASSERT_TRUE(libraries.Write("TvnB.dll"));
    ASSERT_TRUE(libraries.Write("TvnC.dll", {{"TvnE.dll"}, {"TvnF.dll"}}));
    ASSERT_TRUE(libraries.Write("TvnD.dll"));
    ASSERT_TRUE(libraries.Write("TvnE.dll"));
    ASSERT_TRUE(libraries.Write("TvnF.dll"));
    ASSERT_NE(libraries.Load("TvnA.dll"), nullptr);
    EXPECT_EQ(GatherNames({libraries.PathOf("TvnA.dll")}),
              (Names{"TvnA.dll", "TvnD.dll", "TvnC.dll", "TvnF.dll", "TvnE.dll", "TvnB.dll"}));
}

TEST_F(ProcessModulesTest, GivesTheIdentityOfEveryModuleThatItReaches)
{
    ASSERT_TRUE(libraries.Write("TvnA.dll", {{"TvnB.dll"}}, 0x4000));
    ASSERT_TRUE(libraries.Write("TvnB.dll", {}, 0x5000));
    const HMODULE first = libraries.Load("TvnA.dll");
    ASSERT_NE(first, nullptr);
    const ModuleIdentityList modules = Gather({L"TvnA.dll"});
    ASSERT_EQ(modules.count, 2u);
    EXPECT_EQ(std::wstring(modules[0].path.text), libraries.PathOf("TvnA.dll"));
    EXPECT_EQ(modules[0].base, reinterpret_cast<uintptr_t>(first));
    EXPECT_EQ(modules[0].imageSize, 0x4000u);
    EXPECT_EQ(std::wstring(modules[1].path.text), libraries.PathOf("TvnB.dll"));
    EXPECT_EQ(modules[1].base, reinterpret_cast<uintptr_t>(GetModuleHandleW(L"TvnB.dll")));
    EXPECT_EQ(modules[1].imageSize, 0x5000u);
}

TEST_F(ProcessModulesTest, ListsAModuleOnceThatSeveralImport)
{
    ASSERT_TRUE(libraries.Write("TvnA.dll", {{"TvnB.dll"}, {"TvnC.dll"}}));
    ASSERT_TRUE(libraries.Write("TvnB.dll", {{"TvnD.dll"}}));
    ASSERT_TRUE(libraries.Write("TvnC.dll", {{"TvnD.dll"}}));
    ASSERT_TRUE(libraries.Write("TvnD.dll"));
    ASSERT_NE(libraries.Load("TvnA.dll"), nullptr);
    EXPECT_EQ(GatherNames({libraries.PathOf("TvnA.dll")}),
              (Names{"TvnA.dll", "TvnC.dll", "TvnD.dll", "TvnB.dll"}));
}

TEST_F(ProcessModulesTest, ComesOutOfACycle)
{
    ASSERT_TRUE(libraries.Write("TvnA.dll", {{"TvnB.dll"}}));
    ASSERT_TRUE(libraries.Write("TvnB.dll", {{"TvnC.dll"}, {"TvnA.dll"}}));
    ASSERT_TRUE(libraries.Write("TvnC.dll", {{"TvnB.dll"}, {"TvnC.dll"}}));
    ASSERT_NE(libraries.Load("TvnA.dll"), nullptr);
    EXPECT_EQ(GatherNames({libraries.PathOf("TvnA.dll")}), (Names{"TvnA.dll", "TvnB.dll", "TvnC.dll"}));
}

TEST_F(ProcessModulesTest, ListsAStartModuleTwiceThatAnotherOneImports)
{
    ASSERT_TRUE(libraries.Write("TvnA.dll"));
    ASSERT_TRUE(libraries.Write("TvnB.dll", {{"TvnA.dll"}}));
    ASSERT_NE(libraries.Load("TvnB.dll"), nullptr);
    const std::wstring a = libraries.PathOf("TvnA.dll");
    const std::wstring b = libraries.PathOf("TvnB.dll");
    EXPECT_EQ(GatherNames({a, b}), (Names{"TvnB.dll", "TvnA.dll", "TvnA.dll"}));
    EXPECT_EQ(GatherNames({b, a}), (Names{"TvnA.dll", "TvnB.dll"}));
    EXPECT_EQ(GatherNames({a, a}), (Names{"TvnA.dll", "TvnA.dll"}));
}

TEST_F(ProcessModulesTest, SkipsAStartModuleThatIsNotLoaded)
{
    ASSERT_TRUE(libraries.Write("TvnA.dll"));
    ASSERT_TRUE(libraries.Write("TvnB.dll"));
    ASSERT_NE(libraries.Load("TvnA.dll"), nullptr);
    EXPECT_EQ(GatherNames({L"TvnB.dll", libraries.PathOf("TvnA.dll"), L"TvnNoFile.dll"}), Names{"TvnA.dll"});
    EXPECT_EQ(Errors(),
              (Names{"ERR Failed to load module TvnB.dll", "ERR Failed to load module TvnNoFile.dll"}));
    EXPECT_EQ(GetModuleHandleW(L"TvnB.dll"), nullptr);
}

TEST_F(ProcessModulesTest, SkipsAnImportThatIsNotLoaded)
{
    ASSERT_TRUE(libraries.Write("TvnA.dll"));
    ASSERT_TRUE(libraries.Write("TvnB.dll"));
    ASSERT_NE(libraries.Load("TvnA.dll"), nullptr);
    ASSERT_TRUE(libraries.Rename("TvnA.dll"));
    ASSERT_TRUE(libraries.Write("TvnA.dll", {{"TvnNoFile.dll"}, {"TvnB.dll"}}));
    EXPECT_EQ(GatherNames({L"TvnA.dll"}), Names{"TvnA.dll"});
    EXPECT_TRUE(Errors().empty());
    EXPECT_EQ(GetModuleHandleW(L"TvnB.dll"), nullptr);
}

TEST_F(ProcessModulesTest, ListsAModuleWhoseFileIsMissingAndFollowsNoneOfItsImports)
{
    ASSERT_TRUE(libraries.Write("TvnA.dll", {{"TvnB.dll"}, {"TvnC.dll"}}));
    ASSERT_TRUE(libraries.Write("TvnB.dll"));
    ASSERT_TRUE(libraries.Write("TvnC.dll", {{"TvnD.dll"}}));
    ASSERT_TRUE(libraries.Write("TvnD.dll"));
    ASSERT_NE(libraries.Load("TvnA.dll"), nullptr);
    ASSERT_TRUE(libraries.Rename("TvnC.dll"));
    EXPECT_EQ(GatherNames({L"TvnA.dll"}), (Names{"TvnA.dll", "TvnC.dll", "TvnB.dll"}));
    EXPECT_TRUE(Errors().empty());
}

TEST_F(ProcessModulesTest, ListsAModuleWhoseFileCannotBeOpened)
{
    ASSERT_TRUE(libraries.Write("TvnA.dll", {{"TvnB.dll"}}));
    ASSERT_TRUE(libraries.Write("TvnB.dll", {{"TvnC.dll"}}));
    ASSERT_TRUE(libraries.Write("TvnC.dll"));
    ASSERT_NE(libraries.Load("TvnA.dll"), nullptr);
    const HANDLE lock = libraries.Lock("TvnB.dll");
    ASSERT_NE(lock, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GatherNames({L"TvnA.dll"}), (Names{"TvnA.dll", "TvnB.dll"}));
    CloseHandle(lock);
    EXPECT_EQ(GatherNames({L"TvnA.dll"}), (Names{"TvnA.dll", "TvnB.dll", "TvnC.dll"}));
    EXPECT_TRUE(Errors().empty());
}

TEST_F(ProcessModulesTest, TakesNamesThatDifferInCaseForOneModule)
{
    ASSERT_TRUE(libraries.Write("TvnA.dll", {{"tvnc.DLL"}, {"TVNB.dll"}, {"TvnC"}}));
    ASSERT_TRUE(libraries.Write("TvnB.dll", {{"TVNC.DLL"}}));
    ASSERT_TRUE(libraries.Write("TvnC.dll"));
    ASSERT_NE(libraries.Load("TvnA.dll"), nullptr);
    const Names names = GatherNames({L"TVNA.DLL"});
    ASSERT_EQ(names.size(), 3u);
    const auto isSame = [](const std::string& name, const char* other) {
        return _stricmp(name.c_str(), other) == 0;
    };
    EXPECT_TRUE(isSame(names[0], "TvnA.dll")) << names[0];
    EXPECT_TRUE(isSame(names[1], "TvnB.dll")) << names[1];
    EXPECT_TRUE(isSame(names[2], "TvnC.dll")) << names[2];
}

TEST_F(ProcessModulesTest, ListsAChainOfLibrariesFromTheFirstToTheLast)
{
    constexpr uint32_t length = 60;
    Names expected;
    for (uint32_t i = 0; i < length; ++i)
    {
        expected.push_back("TvnLink" + std::to_string(i) + ".dll");
    }
    for (uint32_t i = 0; i < length; ++i)
    {
        ASSERT_TRUE(libraries.Write(expected[i], {{expected[(i + 1) % length].c_str()}}));
    }
    ASSERT_NE(libraries.Load(expected[0]), nullptr);
    EXPECT_EQ(GatherNames({L"TvnLink0.dll"}), expected);
}

TEST_F(ProcessModulesTest, ListsMoreThan1024Modules)
{
    constexpr uint32_t repetitions = 1100;
    ASSERT_TRUE(libraries.Write("TvnA.dll", {}, 0x4000));
    ASSERT_TRUE(libraries.Write("TvnB.dll", {}, 0x5000));
    const HMODULE modules[] = {libraries.Load("TvnA.dll"), libraries.Load("TvnB.dll")};
    std::vector<std::wstring> starts;
    for (uint32_t i = 0; i < repetitions; ++i)
    {
        starts.push_back(i % 3 == 0 ? L"TvnB.dll" : L"TvnA.dll");
    }
    const ModuleIdentityList closure = Gather(starts);
    ASSERT_EQ(closure.count, repetitions);
    EXPECT_EQ(closure.capacity, 2048u);
    for (uint32_t i = 0; i < repetitions; ++i)
    {
        const uint32_t library = (repetitions - 1 - i) % 3 == 0 ? 1 : 0;
        ASSERT_EQ(closure[i].base, reinterpret_cast<uintptr_t>(modules[library])) << i;
        ASSERT_EQ(closure[i].imageSize, library == 0 ? 0x4000u : 0x5000u) << i;
        ASSERT_EQ(std::wstring(closure[i].path.text),
                  libraries.PathOf(library == 0 ? "TvnA.dll" : "TvnB.dll"));
    }
}

TEST_F(ProcessModulesTest, ListsAModuleWhoseFileHasBecomeNoImageAndFollowsNothing)
{
    ASSERT_TRUE(libraries.Write("TvnA.dll", {{"TvnB.dll"}}));
    ASSERT_TRUE(libraries.Write("TvnB.dll"));
    ASSERT_NE(libraries.Load("TvnA.dll"), nullptr);
    const std::wstring path = libraries.PathOf("TvnA.dll");
    ASSERT_TRUE(libraries.Rename("TvnA.dll"));
    ASSERT_TRUE(WriteWholeFile(path, "no image, but a file that can be mapped", 39));
    log.Clear();
    EXPECT_EQ(GatherNames({L"TvnA.dll"}), Names{"TvnA.dll"});
    EXPECT_EQ(log.GetLines(), (Names{LogLine("DBG Image '%ls' has wrong DOS header signature", path.c_str()),
                                     "DBG Error: -1, 0xFFFFFFFF"}));
    EXPECT_TRUE(IsUnused(path));
}

TEST_F(ProcessModulesTest, ListsAModuleWhoseImportDirectoryCannotBeMappedAndFollowsNothing)
{
    ASSERT_TRUE(libraries.Write("TvnA.dll", {{"TvnB.dll"}}));
    ASSERT_TRUE(libraries.Write("TvnB.dll"));
    ASSERT_NE(libraries.Load("TvnA.dll"), nullptr);
    const std::wstring path = libraries.PathOf("TvnA.dll");
    std::vector<uint8_t> image = BuildTestLibrary("TvnA.dll", {{"TvnB.dll"}});
    reinterpret_cast<IMAGE_NT_HEADERS32*>(image.data() + 0x80)
        ->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT]
        .VirtualAddress = 0x9000;
    // The start of the file, as an import directory, would name the other library.
    const std::string imported = "TvnB.dll";
    const auto name = std::search(image.begin(), image.end(), imported.begin(), imported.end());
    const uint32_t nameRva = static_cast<uint32_t>(name - image.begin()) - 0x400 + 0x1000;
    memcpy(image.data() + offsetof(IMAGE_IMPORT_DESCRIPTOR, Name), &nameRva, sizeof(nameRva));
    ASSERT_TRUE(libraries.Rename("TvnA.dll"));
    ASSERT_TRUE(WriteWholeFile(path, image.data(), image.size()));
    log.Clear();
    EXPECT_EQ(GatherNames({L"TvnA.dll"}), Names{"TvnA.dll"});
    EXPECT_EQ(log.GetLines(), Names{"DBG Cannot map RVA 0x9000 to executable image file offset"});
    EXPECT_TRUE(IsUnused(path));
}

namespace
{
/// Follows the files that are mapped meanwhile, and what belongs to them.
class MappedFileTrace
{
public:
    std::map<const void*, std::string> open; ///< what is still open, by its handle or its address
    uint32_t files = 0;                      ///< that were opened
    uint32_t failedCloses = 0;               ///< of what isn't open

private:
    struct Create
    {
        MappedFileTrace& trace;

        HANDLE operator()(decltype(&CreateFileW) real, LPCWSTR path, DWORD access, DWORD sharing,
                          LPSECURITY_ATTRIBUTES security, DWORD disposition, DWORD flags,
                          HANDLE pattern) const
        {
            const HANDLE file = real(path, access, sharing, security, disposition, flags, pattern);
            trace.open[file] = "file";
            ++trace.files;
            return file;
        }
    };

    struct CreateMapping
    {
        MappedFileTrace& trace;

        HANDLE operator()(decltype(&CreateFileMappingW) real, HANDLE file, LPSECURITY_ATTRIBUTES security,
                          DWORD protection, DWORD high, DWORD low, LPCWSTR name) const
        {
            const HANDLE mapping = real(file, security, protection, high, low, name);
            trace.open[mapping] = "mapping";
            return mapping;
        }
    };

    struct Map
    {
        MappedFileTrace& trace;

        LPVOID operator()(decltype(&MapViewOfFile) real, HANDLE mapping, DWORD access, DWORD high, DWORD low,
                          SIZE_T size) const
        {
            void* view = real(mapping, access, high, low, size);
            trace.open[view] = "view";
            return view;
        }
    };

    struct Unmap
    {
        MappedFileTrace& trace;

        BOOL operator()(decltype(&UnmapViewOfFile) real, LPCVOID view) const
        {
            trace.failedCloses += trace.open.erase(view) == 0;
            return real(view);
        }
    };

    struct Close
    {
        MappedFileTrace& trace;

        BOOL operator()(decltype(&CloseHandle) real, HANDLE handle) const
        {
            trace.failedCloses += trace.open.erase(handle) == 0;
            return real(handle);
        }
    };

    FakeImport<Create> create{"CreateFileW", Create{*this}};
    FakeImport<CreateMapping> createMapping{"CreateFileMappingW", CreateMapping{*this}};
    FakeImport<Map> map{"MapViewOfFile", Map{*this}};
    FakeImport<Unmap> unmap{"UnmapViewOfFile", Unmap{*this}};
    FakeImport<Close> close{"CloseHandle", Close{*this}};
};
} // namespace

TEST_F(ProcessModulesTest, ClosesAndUnmapsAndFreesAllThatItHasUsed)
{
    ASSERT_TRUE(libraries.Write("TvnA.dll", {{"TvnB.dll"}}));
    ASSERT_TRUE(libraries.Write("TvnB.dll"));
    ASSERT_NE(libraries.Load("TvnA.dll"), nullptr);
    Gather({L"TvnA.dll"}); // so that the pools have grown
    uint32_t modules = 0;
    uint32_t files = 0;
    uint32_t failedCloses = 0;
    std::vector<std::string> stillOpen;
    size_t allocated = 0;
    size_t freed = 0;
    {
        const MappedFileTrace trace;
        const RecordedHeapCalls heap;
        modules = Gather({L"TvnA.dll"}).count;
        files = trace.files;
        failedCloses = trace.failedCloses;
        for (const auto& opened : trace.open)
        {
            stillOpen.push_back(opened.second);
        }
        allocated = heap.GetCalls("HeapAlloc").size();
        freed = heap.GetCalls("HeapFree").size();
    }
    EXPECT_EQ(modules, 2u);
    EXPECT_EQ(files, 2u);
    EXPECT_EQ(failedCloses, 0u);
    EXPECT_EQ(stillOpen, std::vector<std::string>());
    EXPECT_NE(allocated, 0u);
    EXPECT_EQ(allocated, freed);
}

namespace
{
/// Adds the modules that a loaded one imports, by the import directory in its memory, and all that those import.
void AddWithImports(HMODULE module, std::set<uint64_t>& bases)
{
    if (!bases.insert(reinterpret_cast<uintptr_t>(module)).second)
    {
        return;
    }
    const auto* image = reinterpret_cast<const uint8_t*>(module);
    const auto& directory = ImageHeaders(module).OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    if (directory.Size == 0)
    {
        return;
    }
    const auto* import = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(image + directory.VirtualAddress);
    for (; import->Name != 0; ++import)
    {
        const HMODULE imported = GetModuleHandleA(reinterpret_cast<const char*>(image + import->Name));
        if (imported != nullptr)
        {
            AddWithImports(imported, bases);
        }
    }
}
} // namespace

TEST_F(ProcessModulesTest, ListsEverythingThatThisProgramImportsOnce)
{
    const ModuleIdentityList modules = Gather({ExecutablePath()});
    std::set<uint64_t> bases;
    for (const ModuleIdentity& module : modules)
    {
        EXPECT_TRUE(bases.insert(module.base).second) << FileNameOf(module);
        const HMODULE handle = reinterpret_cast<HMODULE>(static_cast<uintptr_t>(module.base));
        wchar_t path[MAX_PATH] = {};
        EXPECT_NE(GetModuleFileNameW(handle, path, MAX_PATH), 0u);
        EXPECT_EQ(std::wstring(module.path.text), path);
        EXPECT_NE(module.imageSize, 0u);
    }
    EXPECT_EQ(modules[0].base, reinterpret_cast<uintptr_t>(GetModuleHandleW(nullptr)));
    std::set<uint64_t> expected;
    AddWithImports(GetModuleHandleW(nullptr), expected);
    EXPECT_EQ(bases, expected);
    for (const wchar_t* name : {L"kernel32.dll", L"ntdll.dll"})
    {
        EXPECT_EQ(bases.count(reinterpret_cast<uintptr_t>(GetModuleHandleW(name))), 1u);
    }
    EXPECT_TRUE(Errors().empty());
}
} // namespace Torvane::Testing
