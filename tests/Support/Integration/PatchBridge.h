#pragma once

/// \file
/// Bridge halves that load patches; for the thread that runs the test.

#include "tests/Support/ByteImage.h"
#include "tests/Support/Integration/IntegrationTest.h"

namespace Torvane::Testing
{
class PatchBridge : public ConnectedBridgeTest
{
protected:
    /// Has a patch loaded. \return the answer; empty, with a failure of the test, if none has come.
    Received<PatchLoadedBlob> Load(const PatchCommand& command)
    {
        EXPECT_TRUE(SendLoadPatch(link, command));
        return ExpectLoaded();
    }

    Received<PatchLoadedBlob> Load(const std::wstring& path)
    {
        PatchCommand command;
        command.path = path;
        return Load(command);
    }

    /// Has a patch loaded, and compares every byte of the answer.
    Received<PatchLoadedBlob> LoadAsExpected(const PatchCommand& command)
    {
        const Received<PatchLoadedBlob> loaded = Load(command);
        if (loaded)
        {
            EXPECT_EQ(ExpectedAnswer(command, loaded->base), loaded.Bytes());
        }
        return loaded;
    }

    /// The answer to a command that has been sent.
    Received<PatchLoadedBlob> ExpectLoaded()
    {
        const Message answer = link.WaitForOneOf({BlobType::PatchLoaded, BlobType::LogNarrow}, testTimeout);
        EXPECT_TRUE(answer) << "No answer has come.";
        EXPECT_TRUE(!answer || answer.Type() == BlobType::PatchLoaded) << BlobName(answer.Type());
        return answer && answer.Type() == BlobType::PatchLoaded ? Received<PatchLoadedBlob>(answer)
                                                                : Received<PatchLoadedBlob>();
    }

    /// The only answer to a load that fails: its bytes.
    std::vector<uint8_t> ExpectFailed()
    {
        const Message answer = link.WaitForOneOf({BlobType::PatchLoaded, BlobType::LogNarrow}, testTimeout);
        ExpectNoReply();
        return answer.Bytes();
    }

    /// `SizeOfImage` of a module of the host.
    uint32_t ImageSize(AddressSlot base)
    {
        return NumberAt(base + NumberAt(base + 0x3C) + 0x50);
    }

    /// The `PatchLoaded` that is due for a command, given the address of the image.
    std::vector<uint8_t> ExpectedAnswer(const PatchCommand& command, AddressSlot base)
    {
        const uint32_t size = ImageSize(base);
        ByteImage expected(80);
        expected.U32(0x08, static_cast<uint32_t>(command.cookie38)).U64(0x10, base).U32(0x18, size);
        expected.U64(0x20, command.cookie50).U64(0x28, command.cookie58).U64(0x30, command.cookie60);
        expected.Text(0x00, command.path).Text(0x04, command.cookieText);
        ByteImage ranges;
        uint32_t count = 0;
        for (const WirePageRange& range : QueryPageRanges(base, size))
        {
            ranges.U64(count * 24, range.base).U64(count * 24 + 8, range.size);
            ranges.U32(count * 24 + 16, range.protection).U32(count * 24 + 20, 0);
            ++count;
        }
        expected.Item(0x38, ranges.Bytes().data(), ranges.Bytes().size()).U32(0x3C, count);
        expected.Item(0x40, nullptr, 0).U32(0x44, 0).U8(0x48, command.cookie68);
        return expected.Blob(18);
    }

private:
    uint32_t NumberAt(AddressSlot address)
    {
        const std::vector<uint8_t> bytes = host.Read(address, 4);
        uint32_t number = 0;
        EXPECT_EQ(4u, bytes.size());
        memcpy(&number, bytes.data(), bytes.size());
        return number;
    }
};
} // namespace Torvane::Testing
