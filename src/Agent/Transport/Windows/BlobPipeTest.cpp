#include "Agent/Transport/Windows/BlobPipe.h"

#include "tests/Support/FakeImport.h"

#include <vector>

namespace Torvane::Testing
{
TEST(BlobPipe, IsClosedOnceAndItsHandleForgotten)
{
    const HANDLE opened = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::vector<HANDLE> closed;
    FakeImport close("CloseHandle", [&](decltype(&CloseHandle) real, HANDLE handle) -> BOOL {
        closed.push_back(handle);
        return real(handle);
    });
    HANDLE pipe = opened;
    ClosePipe(pipe);
    EXPECT_EQ(pipe, INVALID_HANDLE_VALUE);
    EXPECT_EQ(closed, std::vector<HANDLE>{opened});
    ClosePipe(pipe);
    EXPECT_EQ(pipe, INVALID_HANDLE_VALUE);
    EXPECT_EQ(closed, std::vector<HANDLE>{opened});
}
} // namespace Torvane::Testing
