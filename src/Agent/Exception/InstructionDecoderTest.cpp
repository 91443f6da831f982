#include "Agent/Exception/InstructionDecoder.h"

#include "Agent/Exception/NopSequences.h"
#include "tests/Support/InstructionEncodings.h"

#include <gtest/gtest.h>
#include <set>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/mman.h>
#include <unistd.h>
#endif

using namespace Torvane;
using namespace Torvane::Testing;

namespace
{
using Bytes = std::vector<uint8_t>;

Bytes FromText(const char* text)
{
    Bytes bytes;
    char* end = nullptr;
    for (unsigned long value = strtoul(text, &end, 16); end != text; value = strtoul(text, &end, 16))
    {
        bytes.push_back(static_cast<uint8_t>(value));
        text = end;
    }
    return bytes;
}

std::string ToText(const Bytes& bytes)
{
    std::string text;
    for (const uint8_t byte : bytes)
    {
        char digits[4];
        snprintf(digits, sizeof(digits), "%02X ", static_cast<unsigned>(byte));
        text += digits;
    }
    return text;
}

/// 15 bytes, followed by memory that can't be read.
class Code
{
public:
    Code()
    {
#ifdef _WIN32
        size = 0x1000;
        pages = static_cast<uint8_t*>(VirtualAlloc(nullptr, 2 * size, MEM_RESERVE, PAGE_NOACCESS));
        VirtualAlloc(pages, size, MEM_COMMIT, PAGE_READWRITE);
#else
        size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        pages = static_cast<uint8_t*>(mmap(nullptr, 2 * size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(pages, size, PROT_READ | PROT_WRITE);
#endif
    }

    ~Code()
    {
#ifdef _WIN32
        VirtualFree(pages, 0, MEM_RELEASE);
#else
        munmap(pages, 2 * size);
#endif
    }

    Code(const Code&) = delete;
    Code& operator=(const Code&) = delete;

    /// The start of `bytes`, filled up to 15.
    const uint8_t* Put(const Bytes& bytes, uint8_t filling)
    {
        uint8_t* code = pages + size - longestInstruction;
        memset(code, filling, longestInstruction);
        memcpy(code, bytes.data(), bytes.size() < longestInstruction ? bytes.size() : longestInstruction);
        return code;
    }

private:
    uint8_t* pages;
    size_t size;
};

Bytes Repeat(uint8_t byte, size_t count, const Bytes& rest = {})
{
    Bytes bytes(count, byte);
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return bytes;
}

class InstructionDecoder : public testing::Test
{
protected:
    InstructionDecoder()
    {
        StartupInstructionDecoder();
    }

    /// Decodes, and checks what is documented for every result.
    uint8_t Decode(const Bytes& bytes, uint8_t filling = 0xCC)
    {
        const uint8_t* const given = code.Put(bytes, filling);
        const DecodedInstruction decoded = DecodeInstruction(given);
        const uint8_t none[longestInstruction] = {};
        EXPECT_EQ(0, memcmp(decoded.bytes, decoded.length != 0 ? given : none, longestInstruction))
            << ToText(bytes);
        EXPECT_EQ(decoded.length, GetInstructionLength(given)) << ToText(bytes);
        return decoded.length;
    }

    Code code;
};
} // namespace

TEST_F(InstructionDecoder, GivesTheLengthsOfTheAssembler)
{
    std::set<size_t> lengths;
    for (const InstructionEncoding& encoding : instructionEncodings)
    {
        const Bytes bytes = FromText(encoding.bytes);
        lengths.insert(bytes.size());
        for (const uint8_t filling : {0x00, 0x66, 0x90, 0xCC, 0xF0, 0xFF})
        {
            EXPECT_EQ(bytes.size(), Decode(bytes, filling))
                << encoding.instruction << ", with " << unsigned(filling) << " after it";
        }
    }
    EXPECT_EQ(15u, lengths.size());
    EXPECT_EQ(1u, *lengths.begin());
    EXPECT_EQ(15u, *lengths.rbegin());
}

TEST_F(InstructionDecoder, TakesPrefixesUpTo15BytesAndNoFurther)
{
    constexpr uint8_t dataSegment = 0x3E;
    for (const InstructionEncoding& encoding : instructionEncodings)
    {
        const Bytes bytes = FromText(encoding.bytes);
        for (size_t length = bytes.size(); length <= longestInstruction; ++length)
        {
            EXPECT_EQ(length, Decode(Repeat(dataSegment, length - bytes.size(), bytes)))
                << encoding.instruction;
        }
        EXPECT_EQ(0, Decode(Repeat(dataSegment, longestInstruction + 1 - bytes.size(), bytes)))
            << encoding.instruction << " of 16 bytes";
    }
}

TEST_F(InstructionDecoder, RefusesWhatIsCutAfter15Bytes)
{
    for (const uint8_t prefix : {0x26, 0x2E, 0x36, 0x3E, 0x64, 0x65, 0x66, 0x67, 0xF0, 0xF2, 0xF3})
    {
        EXPECT_EQ(0, Decode(Repeat(prefix, 15))) << "prefixes alone";
        EXPECT_EQ(0, Decode(Repeat(prefix, 14, {0x0F}))) << "the first byte of an opcode";
        EXPECT_EQ(0, Decode(Repeat(prefix, 14, {0xC7}))) << "an opcode without the rest";
        EXPECT_EQ(0, Decode(Repeat(prefix, 10, {0xC7, 0x05, 0, 0, 0}))) << "a part of an address and a value";
    }
}

TEST_F(InstructionDecoder, RefusesWhatIsNoInstruction)
{
    struct Illegal
    {
        const char* what;
        const char* bytes;
    };
    const Illegal cases[] = {
        {"opcode without meaning", "0F 04"},
        {"opcode without meaning", "0F 0A"},
        {"opcode without meaning", "0F 0C"},
        {"opcode without meaning", "0F 36"},
        {"opcode without meaning", "0F 39 00"},
        {"opcode without meaning", "0F 3B 00"},
        {"opcode without meaning", "0F 38 0C C0"},
        {"opcode without meaning", "0F 3A 00 C0 00"},
        {"inc and dec have no third kind", "FE 10"},
        {"FF /7 has no instruction", "FF 38"},
        {"mov with C6 has no other kind", "C6 08 00"},
        {"mov into cs", "8E C8"},
        {"a seventh segment register", "8E F0"},
        {"address of a register", "8D C0"},
        {"lock before mov", "F0 89 08"},
        {"lock before an addition to a register", "F0 01 C8"},
        {"lock before a comparison", "F0 38 08"},
        {"far call through a register", "FF D8"},
        {"control register 1", "0F 22 C8"},
        {"lgdt of a register", "0F 01 D2"},
        {"cmpxchg8b of a register", "0F C7 C8"},
        {"amd's extension with an unknown suffix", "0F 0F C1 00"},
        {"operand-size prefix before vex", "66 C5 F0 58 C2"},
        {"lock before vex", "F0 C5 F0 58 C2"},
        {"vex map without meaning", "C4 E0 70 58 C2"},
        {"x87 form without meaning", "D9 D1"},
        {"x87 form without meaning", "D9 08"},
    };
    for (const Illegal& illegal : cases)
    {
        EXPECT_EQ(0, Decode(FromText(illegal.bytes))) << illegal.bytes << ": " << illegal.what;
        EXPECT_EQ(0, Decode(FromText(illegal.bytes), 0)) << illegal.bytes << ": " << illegal.what;
    }
}

TEST_F(InstructionDecoder, DecodesOneInstructionOutOfTwo)
{
    EXPECT_EQ(1, Decode(FromText("90 90 90")));
    EXPECT_EQ(2, Decode(FromText("89 D8 0F 0B")));
    EXPECT_EQ(1, Decode(FromText("40 89 D8"))) << "in 64-bit code the first byte would be a prefix";
    EXPECT_EQ(6, Decode(FromText("8B 05 00 00 00 00 C3")));
}

TEST_F(InstructionDecoder, ReadsTheNopSequences)
{
    for (uint8_t length = 1; length <= longestInstruction; ++length)
    {
        const uint8_t* const sequence = GetNopSequence(length);
        const Bytes bytes(sequence, sequence + length);
        const uint8_t first = length <= 8 ? length : 8;
        EXPECT_EQ(first, Decode(bytes));
        if (length > first)
        {
            EXPECT_EQ(length - first, Decode(Bytes(bytes.begin() + first, bytes.end())));
        }
    }
}

TEST_F(InstructionDecoder, HoldsOutAgainstRandomBytes)
{
    uint32_t seed = 12345;
    const auto random = [&seed] {
        return static_cast<uint8_t>((seed = seed * 1664525 + 1013904223) >> 24);
    };
    uint32_t decoded = 0;
    for (int i = 0; i < 200000; ++i)
    {
        Bytes bytes(longestInstruction);
        for (uint8_t& byte : bytes)
        {
            byte = random();
        }
        const uint8_t length = Decode(bytes);
        ASSERT_LE(length, longestInstruction) << ToText(bytes);
        decoded += length != 0;
        if (length != 0)
        {
            for (size_t i = length; i < longestInstruction; ++i)
            {
                bytes[i] = static_cast<uint8_t>(~bytes[i]);
            }
            ASSERT_EQ(length, Decode(bytes)) << ToText(bytes) << "depends on what follows it";
        }
    }
    EXPECT_GT(decoded, 100000u);
}
