#include "Agent/Exception/ExceptionTable.h"

#include "gtest/gtest.h"

#include <set>
#include <string>

using namespace Torvane;

namespace
{
struct Expected
{
    uint32_t code;
    const char* name;
    const char* description;
};

const Expected expectedTexts[] = {
    {0x80000001, "EXCEPTION_GUARD_PAGE", "The thread accessed memory allocated with the PAGE_GUARD modifier"},
    {0x80000002, "EXCEPTION_DATATYPE_MISALIGNMENT",
     "The thread tried to read or write data that is misaligned"},
    {0x80000003, "EXCEPTION_BREAKPOINT", "A breakpoint was encountered"},
    {0x80000004, "EXCEPTION_SINGLE_STEP",
     "A trace trap or other single-instruction mechanism signaled that one instruction has been executed"},
    {0xC0000005, "EXCEPTION_ACCESS_VIOLATION",
     "The thread tried to read from or write to a virtual address for which it does not have the appropriate "
     "access"},
    {0xC0000006, "EXCEPTION_IN_PAGE_ERROR",
     "The thread tried to access a page that was not present, and the system was unable to load the page. "
     "For example, this exception might occur if a network connection is lost while running a program over "
     "the network"},
    {0xC0000008, "EXCEPTION_INVALID_HANDLE",
     "The thread used a handle to a kernel object that was invalid (probably because it had been closed)"},
    {0xC000001D, "EXCEPTION_ILLEGAL_INSTRUCTION", "The thread tried to execute an invalid instruction"},
    {0xC0000025, "EXCEPTION_NONCONTINUABLE_EXCEPTION",
     "The thread tried to continue execution after a non-continuable exception occurred"},
    {0xC0000026, "EXCEPTION_INVALID_DISPOSITION",
     "An exception handler returned an invalid disposition to the exception dispatcher"},
    {0xC000008C, "EXCEPTION_ARRAY_BOUNDS_EXCEEDED",
     "The thread tried to access an array element that is out of bounds"},
    {0xC000008D, "EXCEPTION_FLT_DENORMAL_OPERAND",
     "One of the operands in a floating-point operation is denormal"},
    {0xC000008E, "EXCEPTION_FLT_DIVIDE_BY_ZERO",
     "The thread tried to divide a floating-point value by a floating-point divisor of zero"},
    {0xC000008F, "EXCEPTION_FLT_INEXACT_RESULT",
     "The result of a floating-point operation cannot be represented exactly as a decimal fraction"},
    {0xC0000090, "EXCEPTION_FLT_INVALID_OPERATION",
     "The thread tried to execute an invalid floating-point operation"},
    {0xC0000091, "EXCEPTION_FLT_OVERFLOW",
     "The exponent of a floating-point operation is greater than the magnitude allowed by the corresponding "
     "type"},
    {0xC0000092, "EXCEPTION_FLT_STACK_CHECK",
     "The stack overflowed or underflowed as the result of a floating-point operation"},
    {0xC0000093, "EXCEPTION_FLT_UNDERFLOW",
     "The exponent of a floating-point operation is less than the magnitude allowed by the corresponding "
     "type"},
    {0xC0000094, "EXCEPTION_INT_DIVIDE_BY_ZERO",
     "The thread tried to divide an integer value by an integer divisor of zero"},
    {0xC0000095, "EXCEPTION_INT_OVERFLOW",
     "The result of an integer operation caused a carry out of the most significant bit of the result"},
    {0xC0000096, "EXCEPTION_PRIV_INSTRUCTION",
     "The thread tried to execute an instruction whose operation is not allowed in the current machine mode"},
    {0xC00000FD, "EXCEPTION_STACK_OVERFLOW", "The thread used up its stack"},
    {0xC0000194, "EXCEPTION_POSSIBLE_DEADLOCK",
     "Wait operation on a critical section timed out, possible deadlock"},
};

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
    for (const Expected& expected : expectedTexts)
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
    for (const Expected& expected : expectedTexts)
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

TEST(ExceptionTable, TellsWhatAMemoryFaultTried)
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
    for (const Expected& expected : expectedTexts)
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
