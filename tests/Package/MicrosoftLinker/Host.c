/* A host by the other compiler's rules and without its runtime library, which isn't here: the exit code tells. */

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
