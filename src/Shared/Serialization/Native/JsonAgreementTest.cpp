#include "tests/Support/JsonTestText.h"
#include "tests/Support/JsonTestTree.h"

#include <gtest/gtest.h>

// The library is built without exceptions here and then aborts where it would throw, which its parser doesn't.
#define JSON_NOEXCEPTION
#include <nlohmann/json.hpp>

#include <algorithm>

/// \file
/// Strict mode against a reader that others have written, for random documents, whole and broken: both accept the
/// same texts and read the same values. The grammars differ in two places on purpose:
///
/// - In strings we accept all bytes from 0x80 on and all control characters but 0, tab, line feed and carriage
///   return. The other reader requires UTF-8 and no control characters. It reads an `x` in place of each such byte,
///   which like them is valid only in a string; the trees that are compared are those of texts with it.
/// - A number that the end of the text cuts off after its sign, point or exponent is complete to us. The other
///   reader reads a 0 after it.
///
/// Two more differences are the other reader's. A number too large for a `double` is an error; texts with one aren't
/// compared. A byte 0 ends the text; replaced by another control character it is an error to both.

namespace Torvane::Testing
{
namespace
{
bool IsAcceptedByUsOnly(char character)
{
    const uint8_t byte = static_cast<uint8_t>(character);
    const bool control = byte < 0x20 && byte != '\0' && byte != '\t' && byte != '\n' && byte != '\r';
    return control || byte >= 0x80;
}

std::string ReplaceBytes(std::string text)
{
    std::replace_if(text.begin(), text.end(), IsAcceptedByUsOnly, 'x');
    std::replace(text.begin(), text.end(), '\0', '\x01');
    return text;
}

/// What a reader has found, one piece after the other, in one form for both readers.
class Findings
{
public:
    void Add(char kind, std::string_view text = {})
    {
        all += kind;
        all += std::to_string(text.size());
        all += ' ';
        all += text;
    }

    /// Numbers that fit are compared by their value, since the other reader keeps no text of them.
    void AddInteger(const std::string& value)
    {
        Add('i', value);
    }

    const std::string& All() const
    {
        return all;
    }

private:
    std::string all;
};

/// The other reader's half.
class OtherReader : public nlohmann::json_sax<nlohmann::json>
{
public:
    Findings findings;
    bool tooLarge = false;
    bool rootIsNumber = false;

    bool null() override
    {
        findings.Add('n');
        return true;
    }

    bool boolean(bool value) override
    {
        findings.Add(value ? 't' : 'f');
        return true;
    }

    bool number_integer(number_integer_t value) override
    {
        NoteNumber();
        findings.AddInteger(std::to_string(value));
        return true;
    }

    bool number_unsigned(number_unsigned_t value) override
    {
        NoteNumber();
        findings.AddInteger(std::to_string(value));
        return true;
    }

    bool number_float(number_float_t, const string_t& text) override
    {
        NoteNumber();
        findings.Add('d', text);
        return true;
    }

    bool string(string_t& text) override
    {
        findings.Add('s', text);
        return true;
    }

    bool binary(binary_t&) override
    {
        return false;
    }

    bool start_object(size_t) override
    {
        findings.Add('{');
        return true;
    }

    bool key(string_t& text) override
    {
        findings.Add('k', text);
        return true;
    }

    bool end_object() override
    {
        findings.Add('}');
        return true;
    }

    bool start_array(size_t) override
    {
        findings.Add('[');
        return true;
    }

    bool end_array() override
    {
        findings.Add(']');
        return true;
    }

    bool parse_error(size_t, const std::string&, const nlohmann::detail::exception& error) override
    {
        constexpr int numberOverflow = 406;
        tooLarge = error.id == numberOverflow;
        return false;
    }

private:
    void NoteNumber()
    {
        rootIsNumber = findings.All().empty();
    }
};

/// Whether the other reader reads the number as an integer, as it does if the number fits into 64 bits.
bool AddAsInteger(Findings& findings, const std::string& text)
{
    if (text.find_first_of(".eE") != std::string::npos)
    {
        return false;
    }
    errno = 0;
    const std::string value = text[0] == '-' ? std::to_string(strtoll(text.c_str(), nullptr, 10))
                                             : std::to_string(strtoull(text.c_str(), nullptr, 10));
    if (errno != 0)
    {
        return false;
    }
    findings.AddInteger(value);
    return true;
}

void Walk(Findings& findings, const JsonValue& value);

void WalkObject(Findings& findings, const JsonObject& object)
{
    findings.Add('{');
    for (const JsonObjectElement* element = object.first; element != nullptr; element = element->next)
    {
        findings.Add('k', TextOf(*element->name));
        Walk(findings, *element->value);
    }
    findings.Add('}');
}

void WalkArray(Findings& findings, const JsonArray& array)
{
    findings.Add('[');
    for (const JsonArrayElement* element = array.first; element != nullptr; element = element->next)
    {
        Walk(findings, *element->value);
    }
    findings.Add(']');
}

void WalkNumber(Findings& findings, const std::string& text)
{
    if (!AddAsInteger(findings, text))
    {
        findings.Add('d', text);
    }
}

/// Our half.
void Walk(Findings& findings, const JsonValue& value)
{
    switch (value.type)
    {
    case JsonType::String:
        findings.Add('s', TextOf(PayloadOf<JsonString>(value)));
        break;
    case JsonType::Number:
        WalkNumber(findings, std::string(TextOf(PayloadOf<JsonNumber>(value))));
        break;
    case JsonType::Object:
        WalkObject(findings, PayloadOf<JsonObject>(value));
        break;
    case JsonType::Array:
        WalkArray(findings, PayloadOf<JsonArray>(value));
        break;
    case JsonType::True:
        findings.Add('t');
        break;
    case JsonType::False:
        findings.Add('f');
        break;
    case JsonType::Null:
        findings.Add('n');
        break;
    }
}

struct Verdicts
{
    uint32_t accepted = 0;
    uint32_t refused = 0;
    uint32_t cutOff = 0;   ///< accepted numbers that the end of the text cuts off
    uint32_t tooLarge = 0; ///< not compared
};

bool IsCutOffNumber(const std::string& text)
{
    if (text.empty() || std::string_view("-+.eE").find(text.back()) == std::string_view::npos)
    {
        return false;
    }
    OtherReader completed;
    return nlohmann::json::sax_parse(text + '0', &completed) && completed.rootIsNumber;
}

void ExpectAgreement(const std::string& text, Verdicts& verdicts)
{
    const JsonTree tree = ParseInSteps(text);
    const std::string plain = ReplaceBytes(text);
    if (IsCutOffNumber(plain))
    {
        ++verdicts.cutOff;
        EXPECT_TRUE(tree.accepted) << text;
        return;
    }
    OtherReader other;
    const bool otherAccepted = nlohmann::json::sax_parse(plain, &other);
    if (other.tooLarge)
    {
        ++verdicts.tooLarge;
        return;
    }
    ++(otherAccepted ? verdicts.accepted : verdicts.refused);
    ASSERT_EQ(tree.accepted, otherAccepted)
        << text << "\nours: error " << tree.sized.error << " at " << tree.sized.offset;
    if (otherAccepted)
    {
        Findings findings;
        const JsonTree plainTree = ParseInSteps(plain);
        ASSERT_TRUE(plainTree.accepted) << plain;
        Walk(findings, plainTree.Root());
        EXPECT_EQ(findings.All(), other.findings.All()) << text;
    }
}

TEST(JsonAgreement, WithAnotherReaderOnWholeDocuments)
{
    constexpr uint32_t count = 40000;
    RandomJson random(20240601);
    Verdicts verdicts;
    for (uint32_t i = 0; i < count && !testing::Test::HasFailure(); ++i)
    {
        ExpectAgreement(random.Document(), verdicts);
    }
    EXPECT_EQ(verdicts.accepted, count);
}

TEST(JsonAgreement, WithAnotherReaderOnChangedDocuments)
{
    constexpr uint32_t count = 200000;
    RandomJson random(20240602);
    Verdicts verdicts;
    for (uint32_t i = 0; i < count && !testing::Test::HasFailure(); ++i)
    {
        ExpectAgreement(random.Mutate(random.Document()), verdicts);
    }
    // Neither verdict may be a rarity, and what isn't compared has to be one.
    EXPECT_GT(verdicts.accepted, count / 10);
    EXPECT_GT(verdicts.refused, count / 2);
    EXPECT_GT(verdicts.cutOff, 0u);
    EXPECT_LT(verdicts.tooLarge, count / 100);
    RecordProperty("Accepted", static_cast<int>(verdicts.accepted));
    RecordProperty("Refused", static_cast<int>(verdicts.refused));
    RecordProperty("CutOff", static_cast<int>(verdicts.cutOff));
    RecordProperty("TooLarge", static_cast<int>(verdicts.tooLarge));
}

/// All texts of up to a length over the characters that the grammar looks at. Random texts hardly find short ones.
TEST(JsonAgreement, WithAnotherReaderOnAllShortTextsOfNumbersAndOfStructure)
{
    Verdicts verdicts;
    for (const std::string_view alphabet :
         {std::string_view("01-+.eE, ]["), std::string_view("[]{},:\"a1 \n")})
    {
        constexpr uint32_t longest = 5;
        uint32_t count = 1;
        for (uint32_t length = 0; length <= longest;
             ++length, count *= static_cast<uint32_t>(alphabet.size()))
        {
            for (uint32_t number = 0; number < count && !testing::Test::HasFailure(); ++number)
            {
                std::string text;
                uint32_t rest = number;
                for (uint32_t i = 0; i < length; ++i, rest /= static_cast<uint32_t>(alphabet.size()))
                {
                    text += alphabet[rest % alphabet.size()];
                }
                ExpectAgreement(text, verdicts);
            }
        }
    }
    EXPECT_GT(verdicts.accepted, 1000u);
    EXPECT_GT(verdicts.refused, 100000u);
}

/// Each byte alone, in a string, as an escape and within a number.
TEST(JsonAgreement, WithAnotherReaderOnEveryByte)
{
    Verdicts verdicts;
    for (uint32_t byte = 0; byte < 256; ++byte)
    {
        const std::string character(1, static_cast<char>(byte));
        for (const std::string& text :
             {character, '"' + character + '"', "\"\\" + character + '"', "\"\\u00" + character + "0\"",
              '1' + character, "[1" + character + ']', "[0" + character + "1]", "[-" + character + ']',
              "{" + character + "\"a\":1}", "{\"a\"" + character + "1}", "[1.5" + character + "2]"})
        {
            ExpectAgreement(text, verdicts);
        }
    }
    EXPECT_GT(verdicts.accepted, 200u);
}
} // namespace
} // namespace Torvane::Testing
