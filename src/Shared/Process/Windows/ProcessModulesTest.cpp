#include "Shared/Process/Windows/ProcessModules.h"

#include "tests/Support/RecordedLog.h"
#include "tests/Support/TestLibraries.h"
#include "tests/Support/TestMemorySystem.h"

#include <algorithm>
#include <set>

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
    for (const wchar_t* name : {L"kernel32.dll", L"ntdll.dll"})
    {
        EXPECT_EQ(bases.count(reinterpret_cast<uintptr_t>(GetModuleHandleW(name))), 1u);
    }
    EXPECT_TRUE(Errors().empty());
}
} // namespace Torvane::Testing
