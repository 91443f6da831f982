#pragma once

/// \file
/// One pipe to an Agent, from which only the test itself reads; each object belongs to one thread.

#include <stddef.h>
#include <stdint.h>
#include <vector>

namespace Torvane::Testing
{
/// For Bridge halves that keep the Agent waiting, or that test the pipe's messages. A `Bridge::Link` reads all the time.
class RawPipe
{
public:
    /// Opens the pipe of that host, `agentPipePrefix` or `bridgePipePrefix`, as soon as it exists, within the limit
    /// `testTimeout`.
    RawPipe(const wchar_t* prefix, uint32_t hostProcessId);
    ~RawPipe();
    RawPipe(const RawPipe&) = delete;
    RawPipe& operator=(const RawPipe&) = delete;

    /// Whether it could be opened.
    explicit operator bool() const;

    /// Exactly that many bytes; fewer if the pipe is closed before, or if none comes within the limit `testTimeout`.
    std::vector<uint8_t> Read(size_t size);

    /// A whole Blob with its header; empty if the pipe is closed before.
    std::vector<uint8_t> ReadBlob();

    /// The bytes of one read of at most `size`: a whole message if it isn't longer. Empty on failure. A message may be
    /// empty, so that nothing shows whether there is one: the wait ends with the time limit of the test.
    std::vector<uint8_t> ReadMessage(size_t size);

    /// Writes one message, which may be empty.
    bool Write(const std::vector<uint8_t>& message);

    /// Waits until at least that many bytes can be read, including those that the Agent is still writing.
    /// \return false after the limit `testTimeout`.
    bool WaitForBytes(size_t size) const;

    void Close();

private:
    void* pipe;
};
} // namespace Torvane::Testing
