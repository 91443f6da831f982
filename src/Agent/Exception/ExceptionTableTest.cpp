#include "Agent/Exception/ExceptionTable.h"

#include "tests/Support/TestExceptions.h"

#include "gtest/gtest.h"

#include <set>
#include <string>

using namespace Torvane;
using namespace Torvane::Testing;

namespace
{
EXCEPTION_RECORD MakeRecord(uint32_t parameters, uintptr_t access, uintptr_t address)
{
    EXCEPTION_RECORD record = {};
    record.NumberParameters = parameters;
    record.ExceptionInformation[0] = access;
    record.ExceptionInformation[1] = address;
    return record;
}
} // namespace

TEST(ExceptionTable, NamesAndDescribesItsCodes)
{
    for (const TestException& expected : testExceptions)
    {
        SCOPED_TRACE(expected.name);
        EXPECT_TRUE(IsKnownExceptionCode(expected.code));
        EXPECT_STREQ(expected.name, GetExceptionName(expected.code));
        EXPECT_STREQ(expected.description, GetExceptionDescription(expected.code));
    }
}

TEST(ExceptionTable, KnowsNoOtherCodeAround)
{
    std::set<uint32_t> known;
    for (const TestException& expected : testExceptions)
    {
        known.insert(expected.code);
    }
    ASSERT_EQ(23u, known.size());
    const uint32_t starts[] = {0, 0x406D1000, 0x80000000, 0xC0000000, 0xE06D7000};
    for (const uint32_t start : starts)
    {
        for (uint32_t code = start; code < start + 0x1000; ++code)
        {
            ASSERT_EQ(known.count(code) != 0, IsKnownExceptionCode(code)) << std::hex << code;
            ASSERT_EQ(IsKnownExceptionCode(code), GetExceptionDescription(code) != nullptr)
                << std::hex << code;
        }
    }
}

TEST(ExceptionTable, LeavesGapsAndSoftwareExceptionsAlone)
{
    for (const uint32_t code : {0xC0000007u, 0x406D1388u, 0xE06D7363u, 0u, 1u, 0xFFFFFFFFu})
    {
        EXPECT_FALSE(IsKnownExceptionCode(code)) << std::hex << code;
        EXPECT_EQ(nullptr, GetExceptionName(code)) << std::hex << code;
        EXPECT_EQ(nullptr, GetExceptionDescription(code)) << std::hex << code;
    }
}

TEST(ExceptionTable, OnlyTheFlagsValue1IsNonContinuable)
{
    EXPECT_FALSE(IsExceptionContinuable(1));
    for (const uint32_t flags : {0u, 2u, 3u, 0x11u, 0x80u, 0x81u, 0xFFFFFFFFu})
    {
        EXPECT_TRUE(IsExceptionContinuable(flags)) << flags;
    }
}

TEST(ExceptionTable, ReportsWhatAMemoryFaultTried)
{
    for (const uint32_t code : {0xC0000005u, 0xC0000006u})
    {
        SCOPED_TRACE(code);
        ExceptionDetail detail = GetExceptionDetail(code, MakeRecord(2, 0, 0x1234));
        EXPECT_STREQ("The thread attempted to read the inaccessible data at virtual address", detail.text);
        EXPECT_EQ(0x1234u, detail.address);
        detail = GetExceptionDetail(code, MakeRecord(3, 1, 0xFFFFFFFF));
        EXPECT_STREQ("The thread attempted to write to an inaccessible address at virtual address",
                     detail.text);
        EXPECT_EQ(0xFFFFFFFFu, detail.address) << "widened without a sign";
        detail = GetExceptionDetail(code, MakeRecord(2, 8, 0));
        EXPECT_STREQ(
            "The thread caused a user-mode data execution prevention (DEP) violation at virtual address",
            detail.text);
        EXPECT_EQ(0u, detail.address);
    }
}

TEST(ExceptionTable, GivesNoDetailForAnUnknownAccess)
{
    for (uintptr_t access = 0; access < 64; ++access)
    {
        const ExceptionDetail detail = GetExceptionDetail(0xC0000005, MakeRecord(2, access, 0x1234));
        const bool expected = access == 0 || access == 1 || access == 8;
        EXPECT_EQ(expected, detail.text != nullptr) << access;
        EXPECT_EQ(expected ? 0x1234u : 0u, detail.address) << access;
    }
}

TEST(ExceptionTable, GivesNoDetailWithoutParameters)
{
    const ExceptionDetail detail = GetExceptionDetail(0xC0000005, MakeRecord(0, 0, 0x1234));
    EXPECT_EQ(nullptr, detail.text);
    EXPECT_EQ(0u, detail.address);
}

TEST(ExceptionTable, TakesTheAddressEvenFromARecordWithOneParameter)
{
    const ExceptionDetail detail = GetExceptionDetail(0xC0000005, MakeRecord(1, 1, 0x1234));
    EXPECT_NE(nullptr, detail.text);
    EXPECT_EQ(0x1234u, detail.address);
}

TEST(ExceptionTable, GivesNoDetailForOtherCodes)
{
    for (const TestException& expected : testExceptions)
    {
        if (expected.code != 0xC0000005 && expected.code != 0xC0000006)
        {
            const ExceptionDetail detail = GetExceptionDetail(expected.code, MakeRecord(2, 1, 0x1234));
            EXPECT_EQ(nullptr, detail.text) << expected.name;
            EXPECT_EQ(0u, detail.address) << expected.name;
        }
    }
    EXPECT_EQ(nullptr, GetExceptionDetail(0xC0000007, MakeRecord(2, 1, 0x1234)).text);
}
