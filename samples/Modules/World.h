#pragma once

/// \file
/// What World.dll offers to the host; any thread.

#ifdef BUILDS_WORLD
#define WORLD_API __declspec(dllexport)
#else
#define WORLD_API __declspec(dllimport)
#endif

/// Puts balls into the world, and sees how they fall.
/// \return their height after some seconds.
extern "C" WORLD_API int SimulateWorld(int seconds);
