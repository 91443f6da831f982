#pragma once

/// \file
/// What Physics.dll offers to World.dll; any thread.

#ifdef BUILDS_PHYSICS
#define PHYSICS_API __declspec(dllexport)
#else
#define PHYSICS_API __declspec(dllimport)
#endif

/// The height of a ball after some seconds, never below 0.
extern "C" PHYSICS_API int Fall(int height, int seconds);
