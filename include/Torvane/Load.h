/**
 * Loads TVN_Agent_x86.dll at run time, for hosts that also run without it. Header-only, C99 and C++11, 32-bit x86 Windows.
 *
 *     static TvnHost host;
 *     if (!TvnHostLoad(&host, NULL) || !TvnHostStartDefaultAgent(&host, NULL, NULL, NULL))
 *     {
 *         wprintf(L"no hot reload: %ls\n", host.reason);
 *     }
 *     TvnHostEnableModule(&host, path, ExactlyTheseModules, NULL, NULL);
 *     ...
 *     TvnHostShutdown(&host);
 *
 * In C++ an object of Torvane::Host loads the library and shuts the Agent down; the functions take it as they take &host.
 *
 * TvnHostName does what TvnName of Agent.h does, if the library is loaded and its Agent started, and otherwise nothing. In
 * addition it keeps a program out of harm that is shipped without a Bridge. What the Agent sends goes through a queue that
 * nothing empties without a connection, and a full queue blocks permanently. So
 *
 * - functions that send and don't wait do nothing as long as there is no connection,
 * - the automatic handling of modules begins when there is a connection,
 * - after the connection has failed all functions do nothing.
 *
 * The loss of a connection that had succeeded is not reported by the Agent, and so not covered.
 *
 * Threads: loading, start and shutdown have to be serialised by the host against each other and against all other calls.
 * Between start and shutdown any thread may call any of the others, unless Agent.h says otherwise.
 */
#ifndef TORVANE_LOAD_H
#define TORVANE_LOAD_H

#include "Torvane/Agent.h"

#include <stddef.h>
#include <string.h>
#include <windows.h>

#if defined(__cplusplus) && (defined(__GNUC__) || defined(__clang__))
#pragma GCC diagnostic push /* what C can't do without */
#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Wzero-as-null-pointer-constant"
#endif

/** All exports of the library, by name. */
typedef struct TvnExports
{
    bool(TVN_CALL* TvnCheckVersion)(const char* version);
    const char*(TVN_CALL* TvnGetVersion)(void);
    void(TVN_CALL* TvnOnConnection)(void* context, TvnConnectionCallback callback);
    void(TVN_CALL* TvnLogMessage)(const wchar_t* message);
    void(TVN_CALL* TvnLogMessageANSI)(const char* message);
    void(TVN_CALL* TvnSetBoolPreferences)(uint32_t preference, bool value);
    void(TVN_CALL* TvnSetIntPreferences)(uint32_t preference, int32_t value);
    void(TVN_CALL* TvnSetStringPreferences)(uint32_t preference, const char* value);
    void(TVN_CALL* TvnSetShortcutPreferences)(uint32_t preference, uint32_t firstArgument,
                                              uint32_t secondArgument);
    void(TVN_CALL* TvnEnableModule)(const wchar_t* path, TvnModuleOptions options, void* context,
                                    TvnModuleFilter filter);
    void(TVN_CALL* TvnEnableModuleANSI)(const char* path, TvnModuleOptions options, void* context,
                                        TvnModuleFilterANSI filter);
    void(TVN_CALL* TvnEnableModules)(const wchar_t* const* paths, uint32_t count, TvnModuleOptions options,
                                     void* context, TvnModuleFilter filter);
    void(TVN_CALL* TvnEnableModulesANSI)(const char* const* paths, uint32_t count, TvnModuleOptions options,
                                         void* context, TvnModuleFilterANSI filter);
    void(TVN_CALL* TvnDisableModule)(const wchar_t* path, TvnModuleOptions options, void* context,
                                     TvnModuleFilter filter);
    void(TVN_CALL* TvnDisableModuleANSI)(const char* path, TvnModuleOptions options, void* context,
                                         TvnModuleFilterANSI filter);
    void(TVN_CALL* TvnDisableModules)(const wchar_t* const* paths, uint32_t count, TvnModuleOptions options,
                                      void* context, TvnModuleFilter filter);
    void(TVN_CALL* TvnDisableModulesANSI)(const char* const* paths, uint32_t count, TvnModuleOptions options,
                                          void* context, TvnModuleFilterANSI filter);
    void(TVN_CALL* TvnEnableAutomaticHandlingOfDynamicallyLoadedModules)(void* context,
                                                                         TvnModuleFilter filter);
    void(TVN_CALL* TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI)(void* context,
                                                                             TvnModuleFilterANSI filter);
    void(TVN_CALL* TvnScheduleReload)(void);
    bool(TVN_CALL* TvnWantsReload)(TvnReloadSync sync);
    void(TVN_CALL* TvnReload)(TvnReloadWait wait);
    void(TVN_CALL* TvnScheduleRestart)(TvnRestartScope scope);
    bool(TVN_CALL* TvnWantsRestart)(void);
    void(TVN_CALL* TvnRestart)(TvnRestartBehaviour behaviour, int32_t exitCode);
    void(TVN_CALL* TvnStartupDefaultAgent)(TvnDefaultAgent* agent, const TvnLogFilter* logFilter,
                                           const wchar_t* projectPreferencesPath,
                                           const TvnProjectPreferences* projectPreferences);
    void(TVN_CALL* TvnStartupDefaultAgentANSI)(TvnDefaultAgent* agent, const TvnLogFilter* logFilter,
                                               const char* projectPreferencesPath,
                                               const TvnProjectPreferences* projectPreferences);
    void(TVN_CALL* TvnStartupSynchronizedAgent)(TvnSynchronizedAgent* agent, const TvnLogFilter* logFilter,
                                                const wchar_t* projectPreferencesPath,
                                                const TvnProjectPreferences* projectPreferences);
    void(TVN_CALL* TvnStartupSynchronizedAgentANSI)(TvnSynchronizedAgent* agent,
                                                    const TvnLogFilter* logFilter,
                                                    const char* projectPreferencesPath,
                                                    const TvnProjectPreferences* projectPreferences);
    void(TVN_CALL* TvnShutdown)(void);
} TvnExports;

/** A host's Agent. Members are for reading. It has to exist until TvnHostShutdown has returned. */
typedef struct TvnHost
{
    HMODULE library;     /**< null if it isn't loaded; stays loaded until the process ends */
    TvnExports exports;  /**< all null without a library */
    wchar_t reason[512]; /**< why loading has failed, without a full stop; empty if it hasn't */
    union
    {
        TvnDefaultAgent defaultAgent;
        TvnSynchronizedAgent synchronizedAgent;
    } tables; /**< filled by the start */
    volatile LONG
        status;         /**< TvnConnectionStatus; TvnHostNotStarted or TvnHostConnecting before it is known */
    HANDLE statusKnown; /**< event */
    PVOID volatile callback; /**< TvnConnectionCallback that hasn't been called yet */
    void* callbackContext;
    volatile LONG automaticHandlingWaits; /**< 1 if it has been asked for and there was no connection */
    TvnModuleFilter automaticFilter;
    void* automaticContext;
} TvnHost;

enum
{
    TvnHostNotStarted = -2,
    TvnHostConnecting = -1
};

/* ---- Loading, start and shutdown ----------------------------------------------------------------------- */

/** Writes "text: detail" or, if detail is null, text into host->reason. */
static inline bool TvnHostFail(TvnHost* host, const wchar_t* text, const wchar_t* detail)
{
    const size_t capacity = sizeof(host->reason) / sizeof(host->reason[0]);
    size_t length = 0;
    while (*text != 0 && length + 1 < capacity)
    {
        host->reason[length++] = *text++;
    }
    if (detail != NULL && length + 3 < capacity)
    {
        host->reason[length++] = L':';
        host->reason[length++] = L' ';
        while (*detail != 0 && length + 1 < capacity)
        {
            host->reason[length++] = *detail++;
        }
    }
    host->reason[length] = 0;
    return false;
}

/** The path of TVN_Agent_x86.dll in the folder of the module that this code is in. */
static inline void TvnHostMakePath(wchar_t* path, DWORD capacity)
{
    static const wchar_t name[] = L"TVN_Agent_x86.dll";
    static const char anchor = 0;
    const DWORD nameLength = sizeof(name) / sizeof(name[0]);
    HMODULE module = NULL;
    DWORD length;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       (const wchar_t*)(const void*)&anchor, &module);
    length = GetModuleFileNameW(module, path, capacity - nameLength);
    while (length != 0 && path[length - 1] != L'\\')
    {
        --length;
    }
    memcpy(path + length, name, sizeof(name));
}

/** Fills host->exports. */
static inline bool TvnHostResolve(TvnHost* host, const wchar_t* path)
{
    static const char* const names[] = {
        "TvnCheckVersion",
        "TvnGetVersion",
        "TvnOnConnection",
        "TvnLogMessage",
        "TvnLogMessageANSI",
        "TvnSetBoolPreferences",
        "TvnSetIntPreferences",
        "TvnSetStringPreferences",
        "TvnSetShortcutPreferences",
        "TvnEnableModule",
        "TvnEnableModuleANSI",
        "TvnEnableModules",
        "TvnEnableModulesANSI",
        "TvnDisableModule",
        "TvnDisableModuleANSI",
        "TvnDisableModules",
        "TvnDisableModulesANSI",
        "TvnEnableAutomaticHandlingOfDynamicallyLoadedModules",
        "TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI",
        "TvnScheduleReload",
        "TvnWantsReload",
        "TvnReload",
        "TvnScheduleRestart",
        "TvnWantsRestart",
        "TvnRestart",
        "TvnStartupDefaultAgent",
        "TvnStartupDefaultAgentANSI",
        "TvnStartupSynchronizedAgent",
        "TvnStartupSynchronizedAgentANSI",
        "TvnShutdown",
    };
    FARPROC functions[sizeof(names) / sizeof(names[0])];
    size_t i;
    for (i = 0; i < sizeof(names) / sizeof(names[0]); ++i)
    {
        functions[i] = GetProcAddress(host->library, names[i]);
        if (functions[i] == NULL)
        {
            return TvnHostFail(host, L"the library isn't an Agent of this version", path);
        }
    }
    memcpy(&host->exports, functions, sizeof(host->exports));
    return true;
}

/** Compares the library's version with that of Agent.h. */
static inline bool TvnHostHasVersion(TvnHost* host)
{
    wchar_t version[32] = {0};
    const char* text;
    size_t i;
    if (host->exports.TvnCheckVersion(TVN_VERSION))
    {
        return true;
    }
    text = host->exports.TvnGetVersion();
    for (i = 0; text[i] != 0 && i + 1 < sizeof(version) / sizeof(version[0]); ++i)
    {
        version[i] = (wchar_t)text[i];
    }
    return TvnHostFail(host, L"the Agent's library has another version than this program was built for",
                       version);
}

/** Loads the library and checks its version.
 *
 *  \param path may be null: TVN_Agent_x86.dll in the folder of the module that calls this.
 *  \return whether the Agent can be started; otherwise host->reason says why not. */
static inline bool TvnHostLoad(TvnHost* host, const wchar_t* path)
{
    wchar_t ownPath[1024];
    memset(host, 0, sizeof(*host));
    host->status = TvnHostNotStarted;
    if (path == NULL)
    {
        TvnHostMakePath(ownPath, sizeof(ownPath) / sizeof(ownPath[0]));
        path = ownPath;
    }
    host->library = LoadLibraryW(path);
    if (host->library == NULL)
    {
        switch (GetLastError())
        {
        case ERROR_MOD_NOT_FOUND:
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
            return TvnHostFail(host, L"the Agent's library, or one that it needs, isn't there", path);
        case ERROR_BAD_EXE_FORMAT:
            return TvnHostFail(
                host, L"the Agent's library isn't one for this program, which has to be 32-bit", path);
        default:
            return TvnHostFail(host, L"the Agent's library can't be loaded", path);
        }
    }
    if (!TvnHostResolve(host, path) || !TvnHostHasVersion(host))
    {
        memset(&host->exports, 0, sizeof(host->exports));
        FreeLibrary(host->library);
        host->library = NULL;
        return false;
    }
    return true;
}

/** For the Agent: takes the connection's status. */
static inline void TVN_CALL TvnHostTakeStatus(void* context, TvnConnectionStatus status)
{
    TvnHost* host = (TvnHost*)context;
    PVOID callback;
    InterlockedCompareExchange(&host->status, (LONG)status,
                               TvnHostConnecting); /* not once shutdown has begun */
    SetEvent(host->statusKnown);
    if (host->status == ConnectionSucceeded && InterlockedExchange(&host->automaticHandlingWaits, 0) != 0)
    {
        host->exports.TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(host->automaticContext,
                                                                           host->automaticFilter);
    }
    callback = InterlockedExchangePointer(&host->callback, NULL);
    if (callback != NULL)
    {
        TvnConnectionCallback function;
        memcpy(&function, &callback, sizeof(function));
        function(host->callbackContext, status);
    }
}

/** For the two functions after it. */
static inline void TvnHostStarted(TvnHost* host)
{
    host->statusKnown = CreateEventW(NULL, TRUE, FALSE, NULL);
    InterlockedExchange(&host->status, TvnHostConnecting);
    host->exports.TvnOnConnection(host, TvnHostTakeStatus);
}

/** TvnStartupDefaultAgent. \return false without a library, or if an Agent has been started already: a process starts one
 *  once. */
static inline bool TvnHostStartDefaultAgent(TvnHost* host, const TvnLogFilter* logFilter,
                                            const wchar_t* projectPreferencesPath,
                                            const TvnProjectPreferences* projectPreferences)
{
    if (host->library == NULL || host->statusKnown != NULL)
    {
        return false;
    }
    host->exports.TvnStartupDefaultAgent(&host->tables.defaultAgent, logFilter, projectPreferencesPath,
                                         projectPreferences);
    TvnHostStarted(host);
    return true;
}

/** TvnStartupSynchronizedAgent. \return as above. */
static inline bool TvnHostStartSynchronizedAgent(TvnHost* host, const TvnLogFilter* logFilter,
                                                 const wchar_t* projectPreferencesPath,
                                                 const TvnProjectPreferences* projectPreferences)
{
    if (host->library == NULL || host->statusKnown != NULL)
    {
        return false;
    }
    host->exports.TvnStartupSynchronizedAgent(&host->tables.synchronizedAgent, logFilter,
                                              projectPreferencesPath, projectPreferences);
    TvnHostStarted(host);
    return true;
}

/** TvnShutdown, if an Agent is running. There is no second start. */
static inline void TvnHostShutdown(TvnHost* host)
{
    if (host->library != NULL && InterlockedExchange(&host->status, TvnHostNotStarted) != TvnHostNotStarted)
    {
        host->exports.TvnShutdown();
    }
}

/* ---- Connection ---------------------------------------------------------------------------------------- */

/** Whether there is a connection, or there was one: its loss isn't reported. */
static inline bool TvnHostIsConnected(const TvnHost* host)
{
    return host->status == ConnectionSucceeded;
}

/** Waits until the connection has succeeded or failed. \return whether it has succeeded. */
static inline bool TvnHostWaitForConnection(const TvnHost* host, DWORD milliseconds)
{
    if (host->status == TvnHostConnecting)
    {
        WaitForSingleObject(host->statusKnown, milliseconds);
    }
    return TvnHostIsConnected(host);
}

/** TvnOnConnection. Not called at all without a library, or if no Agent has been started. */
static inline void TvnHostOnConnection(TvnHost* host, void* context, TvnConnectionCallback callback)
{
    PVOID function;
    if (host->status == TvnHostNotStarted)
    {
        return;
    }
    memcpy(&function, &callback, sizeof(function));
    host->callbackContext = context;
    InterlockedExchangePointer(&host->callback, function);
    host->exports.TvnOnConnection(host, TvnHostTakeStatus);
}

/* ---- Functions that send, and do nothing without a connection -------------------------------------------- */

/** Defines TvnHostName, which calls TvnName if there is a connection. */
#define TVN_HOST_SENDER(name, parameters, arguments) \
    static inline void TvnHost##name parameters      \
    {                                                \
        if (TvnHostIsConnected(host))                \
        {                                            \
            host->exports.Tvn##name arguments;       \
        }                                            \
    }

TVN_HOST_SENDER(LogMessage, (const TvnHost* host, const wchar_t* message), (message))
TVN_HOST_SENDER(LogMessageANSI, (const TvnHost* host, const char* message), (message))
TVN_HOST_SENDER(SetBoolPreferences, (const TvnHost* host, uint32_t preference, bool value),
                (preference, value))
TVN_HOST_SENDER(SetIntPreferences, (const TvnHost* host, uint32_t preference, int32_t value),
                (preference, value))
TVN_HOST_SENDER(SetStringPreferences, (const TvnHost* host, uint32_t preference, const char* value),
                (preference, value))
TVN_HOST_SENDER(SetShortcutPreferences,
                (const TvnHost* host, uint32_t preference, uint32_t firstArgument, uint32_t secondArgument),
                (preference, firstArgument, secondArgument))
TVN_HOST_SENDER(DisableModule,
                (const TvnHost* host, const wchar_t* path, TvnModuleOptions options, void* context,
                 TvnModuleFilter filter),
                (path, options, context, filter))
TVN_HOST_SENDER(DisableModuleANSI,
                (const TvnHost* host, const char* path, TvnModuleOptions options, void* context,
                 TvnModuleFilterANSI filter),
                (path, options, context, filter))
TVN_HOST_SENDER(DisableModules,
                (const TvnHost* host, const wchar_t* const* paths, uint32_t count, TvnModuleOptions options,
                 void* context, TvnModuleFilter filter),
                (paths, count, options, context, filter))
TVN_HOST_SENDER(DisableModulesANSI,
                (const TvnHost* host, const char* const* paths, uint32_t count, TvnModuleOptions options,
                 void* context, TvnModuleFilterANSI filter),
                (paths, count, options, context, filter))
TVN_HOST_SENDER(ScheduleReload, (const TvnHost* host), ())
TVN_HOST_SENDER(Reload, (const TvnHost* host, TvnReloadWait wait), (wait))
TVN_HOST_SENDER(ScheduleRestart, (const TvnHost* host, TvnRestartScope scope), (scope))
TVN_HOST_SENDER(Restart, (const TvnHost* host, TvnRestartBehaviour behaviour, int32_t exitCode),
                (behaviour, exitCode))

/* ---- Functions that wait for the Bridge, and do nothing once the connection has failed ------------------- */

/** Defines TvnHostName, which calls TvnName unless there won't be a connection. */
#define TVN_HOST_WAITER(name, parameters, arguments)                       \
    static inline void TvnHost##name parameters                            \
    {                                                                      \
        if (TvnHostIsConnected(host) || host->status == TvnHostConnecting) \
        {                                                                  \
            host->exports.Tvn##name arguments;                             \
        }                                                                  \
    }

TVN_HOST_WAITER(EnableModule,
                (const TvnHost* host, const wchar_t* path, TvnModuleOptions options, void* context,
                 TvnModuleFilter filter),
                (path, options, context, filter))
TVN_HOST_WAITER(EnableModuleANSI,
                (const TvnHost* host, const char* path, TvnModuleOptions options, void* context,
                 TvnModuleFilterANSI filter),
                (path, options, context, filter))
TVN_HOST_WAITER(EnableModules,
                (const TvnHost* host, const wchar_t* const* paths, uint32_t count, TvnModuleOptions options,
                 void* context, TvnModuleFilter filter),
                (paths, count, options, context, filter))
TVN_HOST_WAITER(EnableModulesANSI,
                (const TvnHost* host, const char* const* paths, uint32_t count, TvnModuleOptions options,
                 void* context, TvnModuleFilterANSI filter),
                (paths, count, options, context, filter))

#undef TVN_HOST_SENDER
#undef TVN_HOST_WAITER

/* ---- The rest ------------------------------------------------------------------------------------------ */

/** TvnEnableAutomaticHandlingOfDynamicallyLoadedModules, as soon as there is a connection. To be called once. There is no
 *  form for a narrow filter. */
static inline void TvnHostEnableAutomaticHandlingOfDynamicallyLoadedModules(TvnHost* host, void* context,
                                                                            TvnModuleFilter filter)
{
    if (host->status == TvnHostNotStarted)
    {
        return;
    }
    host->automaticContext = context;
    host->automaticFilter = filter;
    InterlockedExchange(&host->automaticHandlingWaits, 1);
    if (TvnHostIsConnected(host) && InterlockedExchange(&host->automaticHandlingWaits, 0) != 0)
    {
        host->exports.TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(context, filter);
    }
}

/** TvnWantsReload; false without a connection. */
static inline bool TvnHostWantsReload(const TvnHost* host, TvnReloadSync sync)
{
    return TvnHostIsConnected(host) && host->exports.TvnWantsReload(sync);
}

/** TvnWantsRestart; false without a connection. */
static inline bool TvnHostWantsRestart(const TvnHost* host)
{
    return TvnHostIsConnected(host) && host->exports.TvnWantsRestart();
}

#if defined(__cplusplus) && (defined(__GNUC__) || defined(__clang__))
#pragma GCC diagnostic pop
#endif

#ifdef __cplusplus
namespace Torvane
{
/** Loads the library when it is created and shuts the Agent down when it is destroyed. */
class Host
{
public:
    explicit Host(const wchar_t* path = nullptr)
    {
        TvnHostLoad(&host, path);
    }

    ~Host()
    {
        TvnHostShutdown(&host);
    }

    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /** For the functions above. */
    operator TvnHost*()
    {
        return &host;
    }

    const TvnHost* operator->() const
    {
        return &host;
    }

private:
    TvnHost host;
};
} // namespace Torvane
#endif

#endif
