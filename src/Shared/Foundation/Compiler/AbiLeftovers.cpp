// What compiled code refers to and a C++ library would supply. Only the image links this: tests have such a library.

extern "C" [[noreturn]] void __cxa_pure_virtual();

/// Stands in the table of a class whose operation was never written; no object of such a class exists.
extern "C" void __cxa_pure_virtual()
{
    __builtin_trap();
}
