#pragma once

/// \file
/// The function that a reload changes; any thread.

extern "C" __declspec(dllexport) int Value();
