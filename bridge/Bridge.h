#pragma once

/// \file
/// Everything that a program needs to be the Bridge of an Agent: a 64-bit process that obeys a Broker and orders
/// an Agent about. Each header says which threads may call it. Windows only, C++17 with its library.
///
/// An Agent spawns `TVN_Agent_Bridge_x64.exe` from the folder of its own file, with its process id as the command
/// line and without standard handles. It waits for both pipes to be connected (2 seconds for each unless the
/// Broker's preferences say otherwise) and takes `Version` first. The smallest Bridge:
///
///     Link link(HostProcessIdFromCommandLine());
///     if (!link.Connect(2000) || !link.ExchangeVersion(2000))
///     {
///         return 1;
///     }
///     const auto process = link.Expect<RegisterProcessBlob>(2000);
///     ... SendLoadPatch(link, order);
///     const auto loaded = link.Expect<PatchLoadedBlob>(10000);
///     link.WaitUntilClosed(INFINITE);
///
/// What an Agent expects, and a Bridge should know:
///
/// - The Agent obeys one Blob at a time, in the order sent, and answers few: `LoadPatchWindows` by `PatchLoaded`
///   or a log Blob of level Error, `ReadMemory` by `ReadMemoryResult`, `EchoRequest` by `EchoReply`. An echo tells
///   that everything ordered before it has been obeyed (`WaitUntilExecuted`).
/// - It trusts what it gets: sizes, offsets and addresses aren't checked, and a Blob of a number that it doesn't
///   accept ends its obedience for good.
/// - A thread of the host that waits for modules to be enabled waits until `DecrementLatch` has come as often as
///   the call has met modules: those that `EnableModules` names, and those that a filter of the host refused or whose
///   file couldn't be read, which the Bridge isn't told of. A host that waits for those waits until the link ends.
/// - The host's threads are held from outside (`ThreadSuspender`), all but the Agent's own. While they are held they
///   may own the loader lock or a heap's lock, so a patch is loaded with `watchdog` set then, and whoever waits for
///   `PatchLoaded` has to obey `ResumeHeldThreads` and `SuspendHeldThreads` meanwhile. `ReceiveWhileSuspended` does, and
///   helps where the watchdog doesn't look.
/// - A held thread can also own a lock of the Agent's own: `ThreadSuspender::RunUntilOutside` lets it give that back.
/// - A patch's entry point isn't to run in the loader: `PatchImage.h` tells how that is arranged.
/// - Code that is about to be written over must not be under the instruction pointer of a held thread
///   (`ThreadSuspender::AnyAt`), and its pages have to be made writable first (`SendSetPageProtection`).
/// - What goes over a link can be recorded (`RecordLink`, or `TORVANE_BRIDGE_RECORDING` in the environment of the
///   host) and looked at with the command `blobs`.
/// - The Agent goes by closing its pipes (`Link::IsClosed`). Nobody waits for the Bridge, which ends by itself.

#include "bridge/BlobWriter.h"
#include "bridge/Commands.h"
#include "bridge/DefaultBridge.h"
#include "bridge/HostProcess.h"
#include "bridge/Link.h"
#include "bridge/Message.h"
#include "bridge/Modules.h"
#include "bridge/PatchImage.h"
#include "bridge/Recording/Recorder.h"
#include "bridge/Relaunch.h"
#include "bridge/Scenario.h"
#include "bridge/SharedSections.h"
#include "bridge/SuspendedWaits.h"
#include "bridge/ThreadSuspender.h"
#include "bridge/Utf8.h"
