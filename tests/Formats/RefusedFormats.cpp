// Which formats compile and which don't. A line with an expected error must not compile, all others must.

#include "Shared/Foundation/BoundedFormat.h"
#include "Shared/Foundation/FixedString.h"
#include "Shared/Foundation/Result.h"
#ifdef _WIN32
#include "Shared/Foundation/Windows/ResultOS.h"
#endif

namespace Torvane
{
int32_t signedNumber;
uint32_t unsignedNumber;
uint64_t longNumber;
size_t size;
short shortNumber;
bool flag;
double seconds;
float shortSeconds;
void* pointer;
const char* string;
char buffer[8];
const wchar_t* wideString;
FixedString fixed;
FixedWideString fixedWide;

// Formats that aren't written in the call itself, but known to the compiler.
struct Row
{
    const char* name;
    CheckedFormat<const wchar_t*> format;
};

constexpr Row rows[] = {{"first", "Loaded %ls"}, {"second", "%ls loaded"}};
CheckedFormat<uint32_t> stored = "%u";
constexpr char literal[] = "%X";

void Pass(CheckedFormat<> format, CheckedFormat<const wchar_t*> formatOfPath)
{
    LogDebug(TVN_HERE, format);
    LogDebug(TVN_HERE, formatOfPath, wideString);
    LogDebug(TVN_HERE, formatOfPath, fixedWide.text);
    LogDebug(TVN_HERE, rows[0].format, wideString);
    LogDebug(TVN_HERE, stored, unsignedNumber);
    LogDebug(TVN_HERE, literal, unsignedNumber);
    LogDebug(TVN_HERE, formatOfPath, string);             // expected-error {{no matching function}}
    LogDebug(TVN_HERE, formatOfPath);                     // expected-error {{no matching function}}
    LogDebug(TVN_HERE, stored, signedNumber);             // expected-error {{no matching function}}
    LogDebug(TVN_HERE, string);                           // expected-error {{no matching function}}
    LogDebug(TVN_HERE, string, unsignedNumber);           // expected-error {{no matching function}}
    LogDebug(TVN_HERE, buffer);                           // expected-error {{no matching function}}
    LogDebug(TVN_HERE, nullptr);                          // expected-error {{no matching function}}
    const Row row = {"third", "Loaded %hs"};              // expected-error {{no viable conversion}}
    const CheckedFormat<> none = "%u";                    // expected-error {{no viable conversion}}
    const CheckedFormat<uint32_t> text = string;          // expected-error {{no viable conversion}}
    const CheckedWideFormat<const char*> narrow = L"%hs"; // expected-error {{no viable conversion}}
    (void)row, (void)none, (void)text, (void)narrow;
}

void Arguments()
{
    LogDebug(TVN_HERE, "text");
    LogDebug(TVN_HERE, "%d, %u, %zu, %X, %X", signedNumber, unsignedNumber, size, signedNumber,
             unsignedNumber);
    LogDebug(TVN_HERE, "%llX, %p, %p, %.2f", longNumber, pointer, nullptr, seconds);
    LogDebug(TVN_HERE, "%hs, %hs, %s, %ls, %.*s", string, buffer, string, wideString, 3, string);
    LogDebug(TVN_HERE, "%5d, %9.2f, %43s, %08X, %016llX", 1, 1.0, string, 1, longNumber);
    LogDebug(TVN_HERE, "%u");                           // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "text", unsignedNumber);         // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%u", unsignedNumber, 1);        // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%u%u", unsignedNumber);         // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%d", unsignedNumber);           // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%u", signedNumber);             // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%u", longNumber);               // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%u", shortNumber);              // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%u", flag);                     // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%u", pointer);                  // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%u", string);                   // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%u", fixed);                    // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%X", longNumber);               // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%llX", unsignedNumber);         // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%zu", signedNumber);            // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%p", unsignedNumber);           // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%.2f", unsignedNumber);         // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%.2f", shortSeconds);           // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%hs", wideString);              // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%ls", string);                  // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%s", wideString);               // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%hs", unsignedNumber);          // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%hs", pointer);                 // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%hs", nullptr);                 // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%.*s", string);                 // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%.*s", unsignedNumber, string); // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%ls %u", 1u, wideString);       // expected-error {{no matching function}}
}

void UnknownConversions()
{
    LogDebug(TVN_HERE, "%");                 // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "100 %, or so");      // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%%");                // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%9.2", 1.0);         // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%f", 1.0);           // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%.3f", 1.0);         // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%g", 1.0);           // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%i", 1);             // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%x", 1u);            // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%o", 1u);            // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%c", 1);             // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%n", &signedNumber); // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%lu", 1ul);          // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%llu", longNumber);  // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%+d", 1);            // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%-5d", 1);           // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%#X", 1u);           // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%*u", 5, 1u);        // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%.8X", 1u);          // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%.3s", string);      // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%05d", 1);           // expected-error {{no matching function}}
    LogDebug(TVN_HERE, "%05hs", string);     // expected-error {{no matching function}}
}

void EveryFunction()
{
    const Result<int> result = Success(1);
    LogSuccess(TVN_HERE, "%u", 1u);
    LogInfo(0, TVN_HERE, "%u", 1u);
    LogError(TVN_HERE, "%u", 1u);
    LogPanic(TVN_HERE, "%u", 1u);
    MakeError(1, "%u", 1u);
    Expect(result, "%u", 1u);
    fixed.Format("%hs%u", fixed.text, 1u);
    fixedWide.Format(L"%ls%u%s", fixedWide.text, 1u, L"");
    FormatBounded(buffer, sizeof(buffer), "%u", 1u);
    LogSuccess(TVN_HERE, "%u");                  // expected-error {{no matching function}}
    LogInfo(0, TVN_HERE, "%u");                  // expected-error {{no matching function}}
    LogError(TVN_HERE, "%u");                    // expected-error {{no matching function}}
    LogPanic(TVN_HERE, "%u");                    // expected-error {{no matching function}}
    MakeError(1, "%u");                          // expected-error {{no matching function}}
    Expect(result, "%u");                        // expected-error {{no matching function}}
    fixed.Format("%u");                          // expected-error {{no matching member function}}
    fixedWide.Format(L"%hs", string);            // expected-error {{no matching member function}}
    fixedWide.Format("%u", 1u);                  // expected-error {{no matching member function}}
    FormatBounded(buffer, sizeof(buffer), "%u"); // expected-error {{no matching function}}
#ifdef _WIN32
    MakeOSError("%u", 1u);
    LogLastError(TVN_HERE, "%u", 1u);
    MakeOSError("%u");            // expected-error {{no matching function}}
    LogLastError(TVN_HERE, "%u"); // expected-error {{no matching function}}
#endif
}
} // namespace Torvane
