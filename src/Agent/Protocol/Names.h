#pragma once

/// \file
/// The version, and the names by which an Agent and its Bridge find each other; constants, any thread.
///
/// A name that is called a prefix is followed by the process id of the host, in decimal.

#include <stdint.h>

namespace Torvane
{
/// The version of the product and of its protocol: both sides have to send it in their `Version`. The build reads it
/// from this line.
constexpr char apiVersion[] = "2.4.0";

/// The Bridge's program, in the folder of the Agent's library: what completes the folder's path, and the file's name.
constexpr wchar_t bridgePathSuffix[] = L"\\TVN_Agent_Bridge_x64.exe";
constexpr const wchar_t* bridgeFileName = bridgePathSuffix + 1;

// Pipes in message mode, created by the Agent. The agent pipe is written by the Agent, the bridge pipe by the Bridge.
constexpr wchar_t agentPipePrefix[] = L"\\\\.\\pipe\\TVN_Agent";
constexpr wchar_t bridgePipePrefix[] = L"\\\\.\\pipe\\TVN_Bridge";

// The agent-bridge section, which contains the project preferences, and its mutex. Sizes are in bytes.
constexpr wchar_t agentBridgeSectionPrefix[] = L"TVN_AgentBridge_Memory_";
constexpr wchar_t agentBridgeMutexPrefix[] = L"TVN_AgentBridge_Mutex_";
constexpr uint32_t agentBridgeSectionSize = 0x100000;

// The section with the time of the last heartbeat, and its mutex.
constexpr wchar_t heartbeatSectionPrefix[] = L"TVN_Memory_";
constexpr wchar_t heartbeatMutexPrefix[] = L"TVN_Mutex_";
constexpr uint32_t heartbeatSectionSize = 4096;
} // namespace Torvane
