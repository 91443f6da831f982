#pragma once

/// \file
/// Measures and paces the frames of a loop; main thread.

namespace Torvane::Sample
{
/// Gives a loop its frames, and tells how long they were.
class FrameClock
{
public:
    /// \param frameTime what a frame is to take, in milliseconds.
    explicit FrameClock(double frameTime);

    /// Waits until the frame's time is over, and starts the next one. A frame that was late isn't made up for.
    /// \return how long the frame was, from start to start, in milliseconds.
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
