#pragma once

/// \file
/// Includes the whole Bridge kit, for a program that is the Bridge of an Agent: a 64-bit process between a Broker, which
/// decides what is changed and when, and an Agent, which does it. Each header states which threads may call it. Windows,
/// C++17 with its library.
///
/// An Agent spawns `TVN_Agent_Bridge_x64.exe` from the folder of its own file, with its process id as the command line
/// and without standard handles. It waits until both pipes are connected (2 seconds for each, unless the Broker's
/// preferences specify another limit) and accepts `Version` first. A Bridge that reloads a function whenever the host
/// requests it:
///
///     Link link(HostProcessIdFromCommandLine());
///     Session session(link);
///     if (!session.Connect(2000))
///     {
///         return 1;
///     }
///     session.ServeModules();
///     link.ServeInRun(BlobType::ScheduleReload, [&](const Message&) {
///         RunReload(session, {BuildPatch, [&](const LoadedPatch& patch) -> Result<> {
///             const Result<RoutedFunction> routed = Route(session, oldFunction, patch.FindExport("Function"), 2000);
///             return routed ? Result<>() : routed.Why();
///         }}, 10000);
///     });
///     link.Run();
///
/// `samples/Complete` is a whole one, which also decides on exceptions and restarts its host.
///
/// A Bridge has to take into account:
///
/// - The Agent executes one Blob at a time, in the order in which they were sent, and replies to few of them:
///   `LoadPatchWindows` (by `PatchLoaded`, or a log Blob of level Error), `ReadMemory` (`ReadMemoryResult`) and
///   `EchoRequest` (`EchoReply`). An echo reports that everything sent before has been executed (`Fence`).
/// - The Agent trusts what it receives: sizes, offsets and addresses aren't checked. After a Blob of a number that it
///   doesn't accept it permanently executes no more.
/// - Threads of the host wait for the Bridge at any time: for modules to be enabled, for a decision about an exception. So
///   what they wait for is passed to handlers (`Link::Serve`), which every wait calls.
/// - A thread of the host that waits for modules to be enabled waits for as many `DecrementLatch` as its call has found
///   modules. These are the ones in `EnableModules`, and those that a filter of the host refused or whose file couldn't
///   be read, which aren't reported to the Bridge: `AcknowledgeModules` reads how many remain.
/// - "Suspended" are the host's threads that `Session::SuspendThreads` has stopped: all but the Agent's own. They may own
///   the loader lock or a heap's lock, and the host's part in a reload isn't done by them. `RunReload` and `LoadPatch`
///   keep the order that each kind of agent needs.
/// - A suspended thread can also own one of the Agent's locks: `ThreadSuspender::RunUntilOutside` makes it release that.
/// - A patch's entry point mustn't run in the loader: `PatchImage.h` describes how to arrange that.
/// - Code mustn't be overwritten while the instruction pointer of a suspended thread is in it, and its pages have to be
///   made writable first: `Route` does both.
/// - The traffic of a link can be recorded (`RecordLink`, or `TORVANE_BRIDGE_RECORDING` in the environment of the host).
///   The command `blobs` shows recordings.
/// - An Agent that shuts down closes its pipes (`Link::IsClosed`). It doesn't wait for the Bridge, which has to exit by
///   itself.

#include "bridge/BlobName.h"
#include "bridge/BlobWriter.h"
#include "bridge/Commands.h"
#include "bridge/DefaultBridge.h"
#include "bridge/Exceptions.h"
#include "bridge/HostProcess.h"
#include "bridge/Link.h"
#include "bridge/Message.h"
#include "bridge/Modules.h"
#include "bridge/PatchImage.h"
#include "bridge/Recording/Recorder.h"
#include "bridge/Relaunch.h"
#include "bridge/Reload.h"
#include "bridge/RemoteAddress.h"
#include "bridge/Requests.h"
#include "bridge/Result.h"
#include "bridge/Route.h"
#include "bridge/Scenario.h"
#include "bridge/Session.h"
#include "bridge/SharedSections.h"
#include "bridge/Text.h"
#include "bridge/ThreadSuspender.h"
#include "bridge/Watch.h"
