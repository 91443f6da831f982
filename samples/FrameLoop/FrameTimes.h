#pragma once

/// \file
/// Measures and paces the frames of a loop; main thread.

namespace Torvane::Sample
{
/// Paces the frames of a loop and measures them.
class FrameClock
{
public:
    /// \param frameTime the duration of a frame, in milliseconds.
    explicit FrameClock(double frameTime);

    /// Waits for the end of the frame and starts the next one. A late frame doesn't shorten the next.
    /// \return the time since the frame's start, in milliseconds.
    double EndFrame();

private:
    double frameTime;
    double start;
};

/// Times of one phase of the loop, in milliseconds.
struct FrameTimes
{
    unsigned count = 0;
    double sum = 0;
    double longest = 0;

    void Add(double time);

    /// A line with number, mean and longest of the frames.
    void Print(const char* phase) const;
};
} // namespace Torvane::Sample
