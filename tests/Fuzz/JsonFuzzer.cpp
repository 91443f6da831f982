/// \file
/// Feeds documents to the JSON reader, with several sets of options each, and checks what holds for all of them.

#include "tests/Support/JsonTestTree.h"

#include <stdio.h>

namespace Torvane::Testing
{
namespace
{
constexpr uint32_t allOptions =
    JsonOption::TrailingComma | JsonOption::UnquotedNames | JsonOption::RootWithoutBraces |
    JsonOption::EqualsSign | JsonOption::NoCommas | JsonOption::Comments | JsonOption::RecordPositions |
    JsonOption::SingleQuotes | JsonOption::Hexadecimal | JsonOption::LeadingPlus | JsonOption::LoosePoint |
    JsonOption::InfinityAndNaN | JsonOption::LineBreaksInStrings;

void Require(bool condition, const char* what, uint32_t flags)
{
    if (!condition)
    {
        fprintf(stderr, "With options 0x%X: %s\n", flags, what);
        abort();
    }
}

void CheckFailure(const JsonParseState& state)
{
    Require(state.error >= JsonError::CommaExpected && state.error <= JsonError::BadString &&
                state.error != JsonError::QuoteExpected,
            "the error is none that is documented", state.flags);
    Require(state.offset <= state.size, "the reader is after the end of the text", state.flags);
}

void CheckTree(const JsonTree& tree, std::string_view text)
{
    const uint32_t flags = tree.sized.flags;
    Require(tree.IsFilled(), "the tree takes another size than was counted", flags);
    Require(tree.built.offset <= tree.built.size && tree.built.lineNumber >= 1,
            "pass two ended at an invalid position", flags);

    const ComparePositions positions =
        (flags & JsonOption::RecordPositions) != 0 ? ComparePositions::Yes : ComparePositions::No;
    const JsonTree again = ParseInSteps(text, flags);
    Require(again.accepted && IsSameValue(tree.Root(), again.Root(), positions),
            "the same text gave another tree", flags);

    const std::string written = WriteTree(tree);
    const JsonTree rebuilt = ParseInSteps(written, flags);
    Require(rebuilt.accepted && rebuilt.IsFilled() &&
                IsSameValue(tree.Root(), rebuilt.Root(), ComparePositions::No),
            "the tree, written out, gives another one", flags);
}

/// \return the tree, if the text has one.
JsonTree Check(std::string_view text, uint32_t flags)
{
    JsonTree tree = ParseInSteps(text, flags);
    if (tree.accepted)
    {
        CheckTree(tree, text);
    }
    else if (!tree.sizePassed)
    {
        CheckFailure(tree.sized);
    }

    const ExactCopy source(text);
    JsonParseState state = StartJsonParse(source.Start(), source.Size(), flags);
    JsonValue* root = ParseJson(state);
    Require((root != nullptr) == tree.accepted, "the steps at once and one by one differ", flags);
    Require(root == nullptr || IsSameValue(*root, tree.Root(), ComparePositions::No),
            "the steps at once and one by one give different trees", flags);
    FreeJson(root);
    return tree;
}

void CheckAll(std::string_view text)
{
    const JsonTree strict = Check(text, 0);
    const uint32_t combinations[] = {allOptions, allOptions & ~uint32_t{JsonOption::RootWithoutBraces}};
    for (const uint32_t flags : combinations)
    {
        Check(text, flags);
    }
    for (uint32_t flag = 1; flag <= allOptions; flag <<= 1)
    {
        if ((flag & allOptions) == 0)
        {
            continue;
        }
        const JsonTree lenient = Check(text, flag);
        const bool comparable = strict.accepted && (flag != JsonOption::RootWithoutBraces ||
                                                    strict.Root().type == JsonType::Object);
        Require(!comparable ||
                    (lenient.accepted && IsSameValue(strict.Root(), lenient.Root(), ComparePositions::No)),
                "an option changes what is read without it", flag);
    }
}
} // namespace
} // namespace Torvane::Testing

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Torvane::Testing::CheckAll({reinterpret_cast<const char*>(data), size});
    return 0;
}
