#pragma once

/// \file
/// The function of the host that the reload changes; main thread.

/// The position of a frame later. Motion.cpp moves by one; the patch, which is made of MotionEdited.cpp, by two.
extern "C" __declspec(dllexport) int Advance(int position);
