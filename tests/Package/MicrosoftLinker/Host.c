/* A host for Microsoft's linker, without a runtime library: its exit code is the result. */

extern _Bool __cdecl TvnCheckVersion(const char* version);
extern const char* __cdecl TvnGetVersion(void);

int Start(void)
{
    if (!TvnCheckVersion(TvnGetVersion()))
    {
        return 1;
    }
    return TvnCheckVersion("0") ? 2 : 42;
}
