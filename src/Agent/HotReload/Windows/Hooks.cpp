#include "Agent/HotReload/Windows/Hooks.h"

#include "Shared/Memory/OwnedAllocation.h"

namespace Torvane
{
namespace
{
constexpr uint32_t hookId = 0;

template<typename... Arguments>
void CallEach(const CallHooksBlob& blob, Arguments... arguments)
{
    using Hook = void(__attribute__((__cdecl__))*)(uint32_t, Arguments...);
    const uintptr_t end = static_cast<uintptr_t>(blob.end);
    for (uintptr_t entry = static_cast<uintptr_t>(blob.first); entry < end; entry += sizeof(Hook))
    {
        const Hook hook = *reinterpret_cast<const Hook*>(entry);
        if (hook != nullptr)
        {
            hook(hookId, arguments...);
        }
    }
}

void CallEachWithTextList(const CallHooksBlob& blob)
{
    const uint32_t count = blob.textList.count;
    OwnedAllocation list;
    if (count != 0)
    {
        list = OwnedAllocation(Allocate(count * static_cast<uint32_t>(sizeof(const void*))));
    }
    const void** pointers = static_cast<const void**>(list.Get().pointer);
    const RelativeOffset* offsets = Follow<RelativeOffset>(blob.textList);
    for (uint32_t i = 0; i < count; ++i)
    {
        pointers[i] = Follow(offsets[i]);
    }
    CallEach(blob, Follow(blob.firstText), pointers, count, uint32_t{0}, uint32_t{0});
}
} // namespace

void CallHooks(const CallHooksBlob& blob)
{
    const void* first = Follow(blob.firstText);
    switch (blob.kind)
    {
    case 0:
    case 1:
        CallEach(blob, first, blob.number);
        break;
    case 2:
    case 3:
        CallEach(blob, first, Follow(blob.secondText));
        break;
    case 4:
        CallEach(blob, first, Follow(blob.secondText), Follow(blob.thirdText));
        break;
    case 5:
    case 6:
        CallEach(blob, first);
        break;
    case 7:
        CallEach(blob, first, Follow(blob.kind7Text));
        break;
    case 8:
    case 9:
        CallEachWithTextList(blob);
        break;
    case 10:
    case 11:
        CallEach(blob);
        break;
    default:
        break;
    }
}
} // namespace Torvane
