// Benchmark 9: loading a patch by Blob, and the same file by the relay, in turns.
#include "AgentLink.h"
#include "Patches.h"

#include "../Support/Stopwatch.h"

namespace Torvane::Benchmarks
{
namespace
{
std::vector<uint8_t> MakeLoad(const std::wstring& path)
{
    Bridge::BlobWriter<LoadPatchWindowsBlob> blob;
    blob.String(&LoadPatchWindowsBlob::patchPath, path);
    blob.String(&LoadPatchWindowsBlob::secondText, std::wstring());
    blob.List(&LoadPatchWindowsBlob::reservations, std::vector<WirePageRange>());
    return blob.Finish();
}

void UnloadPatch(AgentLink& agent)
{
    Bridge::BlobWriter<UnloadPatchBlob> blob;
    blob.fixed.base = reinterpret_cast<const PatchLoadedBlob*>(agent.Payload())->base;
    agent.Send(blob.Finish());
    agent.Fence();
}

void FreeLoaded(RelayLink& relay)
{
    uint32_t module = 0;
    memcpy(&module, relay.Payload(), sizeof(module));
    if (module == 0)
    {
        Fail("The relay can't load an image");
    }
    relay.Request(RelayCommand::Free, &module, sizeof(module));
}
} // namespace

void MeasurePatches(Session& session)
{
    for (uint32_t round = 0; round < session.board->rounds; ++round)
    {
        for (const uint32_t size : patchSizes)
        {
            const std::string name =
                size < 1 << 20 ? std::to_string(size >> 10) + " KB" : std::to_string(size >> 20) + " MB";
            const std::wstring path = PatchPath(session.board, size);
            const std::vector<uint8_t> load = MakeLoad(path);
            session.board.Add(name, "ours", Measure([&] {
                                  session.agent.Send(load);
                                  session.agent.ReceiveUntil(BlobType::PatchLoaded);
                              }));
            UnloadPatch(session.agent);
            session.board.Add(name, "bare load", Measure([&] {
                                  session.relay.Request(
                                      RelayCommand::Load, path.c_str(),
                                      static_cast<uint32_t>((path.size() + 1) * sizeof(wchar_t)));
                              }));
            FreeLoaded(session.relay);
        }
    }
}
} // namespace Torvane::Benchmarks
