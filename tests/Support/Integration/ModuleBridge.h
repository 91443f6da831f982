#pragma once

/// \file
/// Bridge halves to which modules are announced; for the thread that runs the test.

#include "tests/Support/ByteImage.h"
#include "tests/Support/Files.h"
#include "tests/Support/Integration/IntegrationTest.h"

namespace Torvane::Testing
{
using FileNames = std::vector<std::wstring>;

/// Base of Bridge halves to which modules are announced.
class ModuleBridge : public ConnectedBridgeTest
{
protected:
    template<typename Record>
    static FileNames NamesOf(const Received<Record>& blob)
    {
        FileNames names;
        for (const EnabledModule& module : ModulesOf(blob))
        {
            names.push_back(FileNameOf(module.path));
        }
        return names;
    }

    template<typename Record>
    Received<Record> ExpectModules(const FileNames& names)
    {
        const auto blob = WaitFor<Record>();
        EXPECT_TRUE(blob);
        if (blob)
        {
            EXPECT_EQ(names, NamesOf(blob));
        }
        return blob;
    }

    /// Receives an `EnableModules` and lets the call continue.
    Received<EnableModulesBlob> Acknowledge(const FileNames& names)
    {
        const auto blob = ExpectModules<EnableModulesBlob>(names);
        if (blob)
        {
            SendDecrementLatch(link, blob->latch, blob->modules.count);
        }
        return blob;
    }

    /// The host waits until the latch has been counted down this often.
    void ExpectCount(const Received<EnableModulesBlob>& blob, uint32_t count)
    {
        ASSERT_TRUE(blob);
        SendDecrementLatch(link, blob->latch, count - 1);
        ASSERT_TRUE(Fence());
        Signal("nearly");
        ASSERT_TRUE(Await("waits"));
        SendDecrementLatch(link, blob->latch);
    }
};

/// Where the headers are in the file of an image.
inline uint32_t HeadersOf(const std::vector<uint8_t>& file)
{
    return *reinterpret_cast<const uint32_t*>(file.data() + 0x3C);
}

/// The record of a module, and that of its file, as Blobs have them.
inline std::vector<uint8_t> ModuleBytes(const std::wstring& path, AddressSlot base,
                                        const std::vector<uint8_t>& file)
{
    ByteImage module(2072);
    module.U32(0, static_cast<uint32_t>(path.size())).Put(4, path.data(), path.size() * sizeof(wchar_t));
    module.U64(2056, base).Put(2064, file.data() + HeadersOf(file) + 0x50, 4);
    return module.Bytes();
}

inline std::vector<uint8_t> ExecutableBytes(const std::vector<uint8_t>& file)
{
    ByteImage executable(272);
    executable.U64(0, file.size());
    executable.Put(8, file.data() + HeadersOf(file) + 4, 20);
    executable.Put(28, file.data() + HeadersOf(file) + 24, 224);
    return executable.Bytes();
}
} // namespace Torvane::Testing
