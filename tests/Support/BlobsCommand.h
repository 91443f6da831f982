#pragma once

/// \file
/// Temporary files and runs of the command, for tests; for the test's only thread.

#include "tools/blobs/Command.h"
#include "tools/blobs/Files.h"

#include "gtest/gtest.h"

#include <string>
#include <vector>

namespace Torvane::Testing
{
/// A file name of this test's own; the file is removed when the test ends.
class TestFile
{
public:
    explicit TestFile(const std::string& name)
        : path(std::string("blobs-") + testing::UnitTest::GetInstance()->current_test_info()->name() + "-" +
               name)
    {
        Blobs::RemoveFile(path);
    }

    TestFile(const std::string& name, const std::string& content)
        : TestFile(name)
    {
        std::string reason;
        EXPECT_TRUE(Blobs::WriteFile(path, content, false, reason)) << reason;
    }

    ~TestFile()
    {
        Blobs::RemoveFile(path);
    }

    std::string Content() const
    {
        std::string content;
        std::string reason;
        EXPECT_TRUE(Blobs::ReadFile(path, content, reason)) << reason;
        return content;
    }

    const std::string path;
};

/// A run that has to fail with one sentence and no other output.
inline void ExpectFailure(int exitCode, const std::string& sentence,
                          const std::vector<std::string>& arguments)
{
    const Blobs::Outcome outcome = Blobs::RunCommand(arguments);
    EXPECT_EQ(exitCode, outcome.exitCode);
    EXPECT_EQ("blobs: " + sentence + "\n", outcome.error);
    EXPECT_EQ("", outcome.output);
}

inline std::string OutputOf(const std::vector<std::string>& arguments)
{
    const Blobs::Outcome outcome = Blobs::RunCommand(arguments);
    EXPECT_EQ(Blobs::success, outcome.exitCode);
    EXPECT_EQ("", outcome.error);
    return outcome.output;
}
} // namespace Torvane::Testing
