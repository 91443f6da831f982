#pragma once

/// \file
/// One pipe to an Agent of which nothing is read before it is asked for; each object belongs to one thread.

#include <stddef.h>
#include <stdint.h>
#include <vector>

namespace Torvane::Testing
{
/// For Bridge halves that keep the Agent waiting. A `Bridge::Link` reads all the time.
class RawPipe
{
public:
    /// The agent pipe of that host, opened as soon as it is there, within the limit `patience`.
    explicit RawPipe(uint32_t hostProcessId);
    ~RawPipe();
    RawPipe(const RawPipe&) = delete;
    RawPipe& operator=(const RawPipe&) = delete;

    /// Whether it could be opened.
    explicit operator bool() const;

    /// Exactly that many bytes; fewer if the pipe ends before. Waits without a limit of its own.
    std::vector<uint8_t> Read(size_t size);

    /// A whole Blob with its header; empty if the pipe ends before.
    std::vector<uint8_t> ReadBlob();

    /// Waits until at least that many bytes could be read, those included in whose writing the Agent still is.
    /// \return false after the limit `patience`.
    bool WaitForBytes(size_t size) const;

    void Close();

private:
    void* pipe;
};
} // namespace Torvane::Testing
