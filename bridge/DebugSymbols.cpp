#include "bridge/DebugSymbols.h"

#include <windows.h>

#include <dbghelp.h>

namespace Torvane::Bridge
{
namespace
{
constexpr DWORD64 anyBase = 0x10000000;
constexpr ULONG functionTag = 5; // SymTagFunction and SymTagPublicSymbol of cvconst.h
constexpr ULONG publicTag = 10;
constexpr DWORD publicsOnly = 0x4000; // SYMOPT_PUBLICS_ONLY
constexpr DWORD with32BitModules =
    0x2000; // SYMOPT_INCLUDE_32BIT_MODULES, without which a 64-bit process gets none

/// The functions of dbghelp.dll, which a Bridge uses only if it is there.
struct DbgHelp
{
    HMODULE library = LoadLibraryW(L"dbghelp.dll");
    decltype(&::SymSetOptions) setOptions = Find<decltype(&::SymSetOptions)>("SymSetOptions");
    decltype(&::SymInitializeW) initialize = Find<decltype(&::SymInitializeW)>("SymInitializeW");
    decltype(&::SymLoadModuleExW) loadModule = Find<decltype(&::SymLoadModuleExW)>("SymLoadModuleExW");
    decltype(&::SymEnumSymbols) enumerate = Find<decltype(&::SymEnumSymbols)>("SymEnumSymbols");
    decltype(&::SymCleanup) cleanup = Find<decltype(&::SymCleanup)>("SymCleanup");

    explicit operator bool() const
    {
        return setOptions != nullptr && initialize != nullptr && loadModule != nullptr &&
               enumerate != nullptr && cleanup != nullptr;
    }

private:
    template<typename Function>
    Function Find(const char* name) const
    {
        return library == nullptr
                   ? nullptr
                   : reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
    }
};

/// The name without the leading underscore of 32-bit code, which a public symbol has and another one hasn't. Two of
/// those that begin C++ names can be one already.
std::string LinkerName(const std::string& name, bool isPublic)
{
    const bool isDecorated = isPublic && name.compare(0, 1, "_") == 0 && name.compare(0, 2, "_Z") != 0;
    return isDecorated ? name.substr(1) : name;
}

BOOL CALLBACK AddFunction(SYMBOL_INFO* symbol, ULONG, void* context)
{
    const bool isPublic = symbol->Tag == publicTag;
    if (isPublic || symbol->Tag == functionTag)
    {
        auto& functions = *static_cast<std::vector<ImageFunction>*>(context);
        const std::string name(symbol->Name, symbol->NameLen);
        functions.push_back({LinkerName(name, isPublic),
                             static_cast<uint32_t>(symbol->Address - symbol->ModBase), !isPublic});
    }
    return TRUE;
}
} // namespace

std::vector<ImageFunction> FunctionsOfPdb(const std::wstring& imagePath)
{
    static const DbgHelp dbgHelp;
    std::vector<ImageFunction> functions;
    if (!dbgHelp)
    {
        return functions;
    }
    const std::wstring folder = imagePath.substr(0, imagePath.find_last_of(L'\\'));
    // Once the public symbols, and once the others that they would hide or be hidden by.
    for (const DWORD options : {with32BitModules | publicsOnly, with32BitModules})
    {
        const HANDLE session = &functions; // any value that isn't in use
        dbgHelp.setOptions(options);
        if (!dbgHelp.initialize(session, folder.c_str(), FALSE))
        {
            break;
        }
        const DWORD64 base =
            dbgHelp.loadModule(session, nullptr, imagePath.c_str(), nullptr, anyBase, 0, nullptr, 0);
        if (base != 0)
        {
            dbgHelp.enumerate(session, base, "*", &AddFunction, &functions);
        }
        dbgHelp.cleanup(session);
    }
    return functions;
}
} // namespace Torvane::Bridge
