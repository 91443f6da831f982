/**
 * Torvane Agent: everything that a host sees of TVN_Agent_x86.dll. C99 and C++11, 32-bit x86 Windows.
 *
 * The Agent lets the native code of this process be changed while it runs. A host
 *
 *   1. loads TVN_Agent_x86.dll (which does nothing by itself) and calls TvnCheckVersion with TVN_VERSION,
 *   2. calls one startup function on a thread of its own, once per process,
 *   3. uses the functions of the table that startup filled (or the exports of the same names),
 *   4. calls TvnShutdown and nothing of the Agent afterwards.
 *
 * Threads: startup and TvnShutdown have to be serialised by the host against each other and against all other
 * calls. Between them any thread may call any function, unless a function says otherwise.
 *
 * Failures: no function reports one. They show in the log file (log_windows_agent_<process id>.txt in
 * "Torvane 2\Logs" of the user's local application data folder, which the Agent doesn't create), in the
 * debugger's output, in the connection callback, or not at all. Pointers are used unchecked: a null pointer
 * crashes where this file doesn't allow it.
 *
 * Blocking: calls that send something put it into a queue of 4096 messages. Where this file says "queues", the
 * call returns at once unless the queue is full; then it blocks until there is room, and permanently once the
 * connection is lost or never came, since nothing takes messages out of it any more.
 *
 * Strings are zero-terminated and copied during the call. Wide ones are in UTF-16. Narrow ones are converted by the C
 * runtime that the Agent uses, the universal one (ucrtbase.dll), in that runtime's locale: a host that is linked to
 * the same runtime dynamically sets it by setlocale; otherwise it is the locale "C". A narrow filter gets an empty
 * string for a path with characters that the locale lacks.
 */
#ifndef TORVANE_AGENT_H
#define TORVANE_AGENT_H

#include <stdbool.h>
#include <stdint.h>
#include <wchar.h>

#if defined(_MSC_VER)
#define TVN_CALL __cdecl
#elif defined(__i386__)
#define TVN_CALL __attribute__((__cdecl__))
#else
#define TVN_CALL
#endif

#ifdef __cplusplus
extern "C"
{
#endif

/** The version that this header describes, for TvnCheckVersion. */
#define TVN_VERSION "2.4.0"

/** The outcome of the connection to the Bridge. One run of the Agent reports exactly one status; the loss of a
 *  connection that had succeeded is never reported. */
typedef enum TvnConnectionStatus
{
    ConnectionSucceeded = 0, /**< the Bridge is there and has this version; reloads can come from now on */
    /** The Bridge wasn't spawned, didn't connect in time or has gone during the handshake; or the pipes, the receiver's
     *  thread or the record of the host's executable can't be made. */
    ConnectionFailed = 1,
    UnexpectedVersionBlob = 2, /**< the Bridge's first message was not its version */
    VersionMismatch = 3        /**< the Bridge has another version */
} TvnConnectionStatus;

/** What an enabling or disabling call acts on. Bits; others than these are ignored. */
typedef enum TvnModuleOption
{
    ExactlyTheseModules = 0, /**< the named modules and no others */
    IncludeImports = 1       /**< also all loaded modules that they import, directly or indirectly */
} TvnModuleOption;

/** A combination of TvnModuleOption bits. */
typedef uint32_t TvnModuleOptions;

/** At which moment TvnWantsReload reports a reload. */
typedef enum TvnReloadSync
{
    SyncBeforeCompile = 0, /**< before compiling: nothing is sent until the host calls TvnReload */
    SyncBeforeLoad = 1     /**< the host continues during compilation; reported when a patch is ready */
} TvnReloadSync;

/** Whether TvnReload waits. */
typedef enum TvnReloadWait
{
    NoWait = 0,           /**< return at once */
    WaitUntilFinished = 1 /**< return when the reload is finished, however long that takes */
} TvnReloadWait;

/** How TvnRestart ends the process. With any other value it returns after its wait and the process continues.
 *  (Prefixed, because two of the names belong to functions of the OS.) */
typedef enum TvnRestartBehaviour
{
    TvnRestartExitProcess = 0, /**< ExitProcess */
    /** exit of the universal C runtime (ucrtbase.dll): runs the exit handlers and static destructors of programs that are
     *  linked to it dynamically, no others'. */
    TvnRestartExitWithCleanup = 1,
    TvnRestartExitWithoutCleanup = 2, /**< _exit of that runtime */
    TvnRestartTerminateProcess = 3    /**< TerminateProcess */
} TvnRestartBehaviour;

/** Which processes TvnScheduleRestart asks to be restarted. */
typedef enum TvnRestartScope
{
    ThisProcessOnly = 0,
    AllProcesses = 1
} TvnRestartScope;

/** Called once with the connection's status, on a thread of the Agent or inside TvnOnConnection, with a lock
 *  held: a callback that blocks holds up that thread and every other TvnOnConnection. It may register another
 *  callback by TvnOnConnection, which is then called at once; one that registers itself again never returns. */
typedef void(TVN_CALL* TvnConnectionCallback)(void* context, TvnConnectionStatus status);

/** Decides whether a module is acted on. Called on the calling thread for each module that the call has found, twice for
 *  one that was found twice. With IncludeImports the modules' files have been mapped before. `path` is the full path as
 *  the OS reports it, valid during the call only. */
typedef bool(TVN_CALL* TvnModuleFilter)(void* context, const wchar_t* path);

/** The same with a narrow path. */
typedef bool(TVN_CALL* TvnModuleFilterANSI)(void* context, const char* path);

/** What the debugger gets to see of the log. Read once, during startup. */
typedef struct TvnLogFilter
{
    /** Sum of: 1 success, 2 information, 4 warnings, 8 errors, 16 panics. Debug lines never reach the debugger.
     *  The log file has no filter. */
    uint32_t debugOutputLevels;
} TvnLogFilter;

/** Project preferences, handed on to the Bridge; read once, during startup. Only directoryToBroker means
 *  something to the Agent; the members that are named by their offset belong to the Bridge. No text may be
 *  null: pass empty texts. */
typedef struct TvnProjectPreferences
{
    bool flag00;
    bool flag01;
    const wchar_t* directoryToBroker; /**< absolute, or relative to the folder of the Agent's library */
    const char* text08;
    const char* text0C;
    uint32_t number10;
    bool flag14;
    const wchar_t* wideText18;
    const wchar_t* wideText1C;
    const char* text20;
    bool flag24;
    bool flag25;
    bool flag26;
    const wchar_t* wideText28;
    const char* text2C;
    bool flag30;
    bool flag31;
    bool flag32;
    bool flag33;
    bool flag34;
    bool flag35;
    const wchar_t* wideText38;
    const char* text3C;
    bool flag40;
    bool flag41;
    bool flag42;
    bool flag43;
    bool flag44;
    uint32_t number48;
    const wchar_t* wideText4C;
    uint32_t number50;
    bool flag54;
    const char* text58;
    const wchar_t* wideText5C;
    bool flag60;
    const char* text64;
    uint32_t number68;
    bool flag6C;
} TvnProjectPreferences;

/* ---- Version ------------------------------------------------------------------------------------------- */

/** True if `version` is byte for byte the Agent's own. No side effect, needs no startup. Call it with
 *  TVN_VERSION before a startup function and don't start an Agent of another version. */
bool TVN_CALL TvnCheckVersion(const char* version);

/** The Agent's version, a static text. Needs no startup. */
const char* TVN_CALL TvnGetVersion(void);

/* ---- Connection, log, preferences ---------------------------------------------------------------------- */

/** Registers the callback that receives the connection's status, in place of any earlier one. If the status is
 *  known already, the callback is called before this returns, on this thread; so the order of the two doesn't
 *  matter. A null callback is harmless before the status is known and a crash afterwards. Waits while another
 *  thread's callback runs. */
void TVN_CALL TvnOnConnection(void* context, TvnConnectionCallback callback);

/** Queues a message for the Broker's log, at information level. It doesn't go to the Agent's own log. */
void TVN_CALL TvnLogMessage(const wchar_t* message);

/** The same with narrow text. */
void TVN_CALL TvnLogMessageANSI(const char* message);

/** Queues a new value for one of the Broker's preferences. The Agent hands the number on unread. */
void TVN_CALL TvnSetBoolPreferences(uint32_t preference, bool value);

/** As TvnSetBoolPreferences, for a number. */
void TVN_CALL TvnSetIntPreferences(uint32_t preference, int32_t value);

/** As TvnSetBoolPreferences, for a text. */
void TVN_CALL TvnSetStringPreferences(uint32_t preference, const char* value);

/** As TvnSetBoolPreferences, for a keyboard shortcut; the two arguments are handed on as given. */
void TVN_CALL TvnSetShortcutPreferences(uint32_t preference, uint32_t firstArgument, uint32_t secondArgument);

/* ---- Modules ------------------------------------------------------------------------------------------- */

/** Announces a loaded module, so that it may be changed. `path` is what GetModuleHandleW understands; a module
 *  that isn't loaded is skipped with a line in the log, nothing is loaded. `filter` may be null.
 *
 *  Waits until the Broker has acknowledged as many modules as the call has found, or the connection is lost. Those that
 *  the filter refused or whose files can't be read count as well, and a Bridge doesn't see them: it has to acknowledge
 *  more than it was sent. Returns at once if the filter refuses all, and doesn't wait once the connection has failed or
 *  was lost; but it sends, and so blocks if the queue is full. Not to be called from a library's entry point. */
void TVN_CALL TvnEnableModule(const wchar_t* path, TvnModuleOptions options, void* context,
                              TvnModuleFilter filter);

/** The same with narrow text of fewer than 1024 characters. */
void TVN_CALL TvnEnableModuleANSI(const char* path, TvnModuleOptions options, void* context,
                                  TvnModuleFilterANSI filter);

/** As TvnEnableModule, for `count` modules at once. */
void TVN_CALL TvnEnableModules(const wchar_t* const* paths, uint32_t count, TvnModuleOptions options,
                               void* context, TvnModuleFilter filter);

/** The same with narrow texts of fewer than 1024 characters each. */
void TVN_CALL TvnEnableModulesANSI(const char* const* paths, uint32_t count, TvnModuleOptions options,
                                   void* context, TvnModuleFilterANSI filter);

/** Disables a module. As TvnEnableModule, but queues and doesn't wait. */
void TVN_CALL TvnDisableModule(const wchar_t* path, TvnModuleOptions options, void* context,
                               TvnModuleFilter filter);

/** The same with narrow text of fewer than 1024 characters. */
void TVN_CALL TvnDisableModuleANSI(const char* path, TvnModuleOptions options, void* context,
                                   TvnModuleFilterANSI filter);

/** As TvnDisableModule, for `count` modules at once. */
void TVN_CALL TvnDisableModules(const wchar_t* const* paths, uint32_t count, TvnModuleOptions options,
                                void* context, TvnModuleFilter filter);

/** The same with narrow texts of fewer than 1024 characters each. */
void TVN_CALL TvnDisableModulesANSI(const char* const* paths, uint32_t count, TvnModuleOptions options,
                                    void* context, TvnModuleFilterANSI filter);

/** From now on every library that the process loads or frees is enabled or disabled as it happens, if `filter`
 *  (or null) keeps it. The filter then runs on the loading thread, inside the loader. Libraries with ".patch_" in
 *  their path are skipped. Queues one message for each library, so it blocks inside the loader if the queue is full.
 *
 *  To be called once. A second call registers a second time, with the newest filters for both. TvnShutdown removes the
 *  last registration; the others stay and do nothing, but the Agent's library must not be freed then. */
void TVN_CALL TvnEnableAutomaticHandlingOfDynamicallyLoadedModules(void* context, TvnModuleFilter filter);

/** The same with a filter of narrow paths. */
void TVN_CALL TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI(void* context,
                                                                       TvnModuleFilterANSI filter);

/* ---- Reload -------------------------------------------------------------------------------------------- */

/** Queues a request for a reload. The reload itself comes when the Broker decides on it. */
void TVN_CALL TvnScheduleReload(void);

/** Synchronized agent only: whether the host should call TvnReload now. To be polled regularly, for instance once
 *  a frame, from one thread only. With SyncBeforeCompile it gives true once per request. With SyncBeforeLoad it
 *  gives true from the arrival of a patch until TvnReload is called, and queues in the call that accepts a request. Any
 *  other value gives false. */
bool TVN_CALL TvnWantsReload(TvnReloadSync sync);

/** Synchronized agent only: lets the reload in, at a point that is safe for the host. With WaitUntilFinished it
 *  blocks, without a limit, until the Broker has finished; it then doesn't return if the connection is lost. To
 *  be called from the thread that polls. A host that stops polling and calling stops all of the Agent's work
 *  while a patch waits. */
void TVN_CALL TvnReload(TvnReloadWait wait);

/* ---- Restart ------------------------------------------------------------------------------------------- */

/** Queues a request for a restart of this process, or of all processes that the Broker knows. */
void TVN_CALL TvnScheduleRestart(TvnRestartScope scope);

/** Synchronized agent only: whether the Broker asks for a restart. One request gives one true. */
bool TVN_CALL TvnWantsRestart(void);

/** Synchronized agent only: hands over what a new process needs, waits without a limit until the Bridge allows it, and ends
 *  this process. Doesn't return if the connection is lost meanwhile or was lost before. */
void TVN_CALL TvnRestart(TvnRestartBehaviour behaviour, int32_t exitCode);

/* ---- Startup and shutdown ------------------------------------------------------------------------------ */

/** The functions for a default agent: the Agent's own threads do all the work. */
typedef struct TvnDefaultAgent
{
    void* hostWord; /**< the host's own; startup neither reads nor writes it */
    void(TVN_CALL* TvnOnConnection)(void* context, TvnConnectionCallback callback);
    void(TVN_CALL* TvnLogMessageANSI)(const char* message);
    void(TVN_CALL* TvnLogMessage)(const wchar_t* message);
    void(TVN_CALL* TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI)(void* context,
                                                                             TvnModuleFilterANSI filter);
    void(TVN_CALL* TvnEnableAutomaticHandlingOfDynamicallyLoadedModules)(void* context,
                                                                         TvnModuleFilter filter);
    void(TVN_CALL* TvnEnableModuleANSI)(const char* path, TvnModuleOptions options, void* context,
                                        TvnModuleFilterANSI filter);
    void(TVN_CALL* TvnEnableModule)(const wchar_t* path, TvnModuleOptions options, void* context,
                                    TvnModuleFilter filter);
    void(TVN_CALL* TvnEnableModulesANSI)(const char* const* paths, uint32_t count, TvnModuleOptions options,
                                         void* context, TvnModuleFilterANSI filter);
    void(TVN_CALL* TvnEnableModules)(const wchar_t* const* paths, uint32_t count, TvnModuleOptions options,
                                     void* context, TvnModuleFilter filter);
    void(TVN_CALL* TvnDisableModuleANSI)(const char* path, TvnModuleOptions options, void* context,
                                         TvnModuleFilterANSI filter);
    void(TVN_CALL* TvnDisableModule)(const wchar_t* path, TvnModuleOptions options, void* context,
                                     TvnModuleFilter filter);
    void(TVN_CALL* TvnDisableModulesANSI)(const char* const* paths, uint32_t count, TvnModuleOptions options,
                                          void* context, TvnModuleFilterANSI filter);
    void(TVN_CALL* TvnDisableModules)(const wchar_t* const* paths, uint32_t count, TvnModuleOptions options,
                                      void* context, TvnModuleFilter filter);
    void(TVN_CALL* TvnScheduleReload)(void);
    void(TVN_CALL* TvnScheduleRestart)(TvnRestartScope scope);
    void(TVN_CALL* TvnSetBoolPreferences)(uint32_t preference, bool value);
    void(TVN_CALL* TvnSetIntPreferences)(uint32_t preference, int32_t value);
    void(TVN_CALL* TvnSetStringPreferences)(uint32_t preference, const char* value);
    void(TVN_CALL* TvnSetShortcutPreferences)(uint32_t preference, uint32_t firstArgument,
                                              uint32_t secondArgument);
} TvnDefaultAgent;

/** The functions for a synchronized agent: the host polls, and carries reloads and restarts out where it is safe
 *  for it. */
typedef struct TvnSynchronizedAgent
{
    void* hostWord; /**< the host's own; startup neither reads nor writes it */
    void(TVN_CALL* TvnOnConnection)(void* context, TvnConnectionCallback callback);
    void(TVN_CALL* TvnLogMessageANSI)(const char* message);
    void(TVN_CALL* TvnLogMessage)(const wchar_t* message);
    void(TVN_CALL* TvnEnableAutomaticHandlingOfDynamicallyLoadedModulesANSI)(void* context,
                                                                             TvnModuleFilterANSI filter);
    void(TVN_CALL* TvnEnableAutomaticHandlingOfDynamicallyLoadedModules)(void* context,
                                                                         TvnModuleFilter filter);
    void(TVN_CALL* TvnEnableModuleANSI)(const char* path, TvnModuleOptions options, void* context,
                                        TvnModuleFilterANSI filter);
    void(TVN_CALL* TvnEnableModule)(const wchar_t* path, TvnModuleOptions options, void* context,
                                    TvnModuleFilter filter);
    void(TVN_CALL* TvnEnableModulesANSI)(const char* const* paths, uint32_t count, TvnModuleOptions options,
                                         void* context, TvnModuleFilterANSI filter);
    void(TVN_CALL* TvnEnableModules)(const wchar_t* const* paths, uint32_t count, TvnModuleOptions options,
                                     void* context, TvnModuleFilter filter);
    void(TVN_CALL* TvnDisableModuleANSI)(const char* path, TvnModuleOptions options, void* context,
                                         TvnModuleFilterANSI filter);
    void(TVN_CALL* TvnDisableModule)(const wchar_t* path, TvnModuleOptions options, void* context,
                                     TvnModuleFilter filter);
    void(TVN_CALL* TvnDisableModulesANSI)(const char* const* paths, uint32_t count, TvnModuleOptions options,
                                          void* context, TvnModuleFilterANSI filter);
    void(TVN_CALL* TvnDisableModules)(const wchar_t* const* paths, uint32_t count, TvnModuleOptions options,
                                      void* context, TvnModuleFilter filter);
    bool(TVN_CALL* TvnWantsReload)(TvnReloadSync sync);
    void(TVN_CALL* TvnScheduleReload)(void);
    void(TVN_CALL* TvnReload)(TvnReloadWait wait);
    bool(TVN_CALL* TvnWantsRestart)(void);
    void(TVN_CALL* TvnScheduleRestart)(TvnRestartScope scope);
    void(TVN_CALL* TvnRestart)(TvnRestartBehaviour behaviour, int32_t exitCode);
    void(TVN_CALL* TvnSetBoolPreferences)(uint32_t preference, bool value);
    void(TVN_CALL* TvnSetIntPreferences)(uint32_t preference, int32_t value);
    void(TVN_CALL* TvnSetStringPreferences)(uint32_t preference, const char* value);
    void(TVN_CALL* TvnSetShortcutPreferences)(uint32_t preference, uint32_t firstArgument,
                                              uint32_t secondArgument);
} TvnSynchronizedAgent;

/** Fills `agent` and starts the Agent. Returns long before there is a connection: TvnOnConnection reports it. On
 *  return the whole table may be used at once.
 *
 *  Creates two heaps, whose 128 MiB each are committed at once, and starts four threads. If a pipe can't be created,
 *  it shows a message box, waits until the user has closed it, and returns with an Agent that has no connection.
 *
 *  \param logFilter may be null: everything that can reach the debugger does.
 *  \param projectPreferencesPath may be null. A path whose second character is a colon is absolute. Any other, one
 *         that begins with a backslash included, is relative to the folder of the process's executable. Together with
 *         that folder it has fewer than 1024 characters. With a path, `projectPreferences` isn't read.
 *  \param projectPreferences may be null. */
void TVN_CALL TvnStartupDefaultAgent(TvnDefaultAgent* agent, const TvnLogFilter* logFilter,
                                     const wchar_t* projectPreferencesPath,
                                     const TvnProjectPreferences* projectPreferences);

/** The same with a narrow path of fewer than 1024 characters. */
void TVN_CALL TvnStartupDefaultAgentANSI(TvnDefaultAgent* agent, const TvnLogFilter* logFilter,
                                         const char* projectPreferencesPath,
                                         const TvnProjectPreferences* projectPreferences);

/** As TvnStartupDefaultAgent, for a synchronized agent. */
void TVN_CALL TvnStartupSynchronizedAgent(TvnSynchronizedAgent* agent, const TvnLogFilter* logFilter,
                                          const wchar_t* projectPreferencesPath,
                                          const TvnProjectPreferences* projectPreferences);

/** The same with a narrow path of fewer than 1024 characters. */
void TVN_CALL TvnStartupSynchronizedAgentANSI(TvnSynchronizedAgent* agent, const TvnLogFilter* logFilter,
                                              const char* projectPreferencesPath,
                                              const TvnProjectPreferences* projectPreferences);

/** Takes the Agent down. Blocks until the attempt to connect has ended, which can take twice the connection
 *  time-out (2 seconds each by default), and until the Bridge has read what was sent to it. After a startup that
 *  showed its message box it doesn't return. The Bridge process isn't waited for. There is no second startup. */
void TVN_CALL TvnShutdown(void);

#ifdef __cplusplus
}
#endif

#endif
