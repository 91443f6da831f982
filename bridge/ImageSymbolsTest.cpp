#include "bridge/ImageSymbols.h"
#include "tests/Support/ImageBuilder.h"

#include <gtest/gtest.h>

namespace
{
using namespace Torvane;
using namespace Torvane::Bridge;
using namespace Torvane::Testing;

// The file has code at RVA 0x1000 and data at RVA 0x3000, as in memory, and symbols after both.
constexpr uint32_t codeRva = 0x1000;
constexpr uint32_t codeOffset = 0x400;
constexpr uint32_t dataRva = 0x3000;
constexpr uint32_t dataOffset = 0x800;
constexpr uint32_t symbolsOffset = 0xC00;
constexpr uint32_t thunkRva = codeRva + 0x80;

constexpr uint16_t function = 0x20;
constexpr uint8_t external = 2;
constexpr uint8_t local = 3;

template<typename Number>
void Put(std::vector<uint8_t>& file, size_t offset, Number number)
{
    memcpy(file.data() + offset, &number, sizeof(number));
}

struct Symbol
{
    std::string name;
    uint32_t value;
    uint16_t section;
    uint16_t type;
    uint8_t storageClass;
    uint8_t auxiliaries = 0;
};

class Image
{
public:
    explicit Image(uint16_t machine = IMAGE_FILE_MACHINE_I386)
    {
        builder.machine = machine;
        builder.sections = {{codeRva, 0x400, codeOffset, 0x400, 0x60000020},
                            {dataRva, 0x400, dataOffset, 0x400, 0xC0000040}};
        builder.contents.assign(symbolsOffset, 0x90);
        const uint16_t jump = 0x25FF;
        builder.Put(codeOffset + (thunkRva - codeRva), &jump, sizeof(jump));
    }

    /// Exports in the data section; a name without an address is a forwarder.
    Image& Export(const std::vector<std::pair<std::string, uint32_t>>& exports)
    {
        const auto count = static_cast<uint32_t>(exports.size());
        uint32_t names = dataRva + 40 + count * 10;
        const uint32_t directory[] = {
            0, 0, 0, 0, 1, count, count, dataRva + 40, dataRva + 40 + count * 4, dataRva + 40 + count * 8};
        builder.Put(dataOffset, directory, sizeof(directory));
        for (uint32_t i = 0; i < count; ++i)
        {
            const auto& [name, rva] = exports[i];
            const uint32_t target = rva == 0 ? dataRva + 1 : rva;
            const auto ordinal = static_cast<uint16_t>(i);
            builder.Put(dataOffset + 40 + i * 4, &target, 4);
            builder.Put(dataOffset + 40 + count * 4 + i * 4, &names, 4);
            builder.Put(dataOffset + 40 + count * 8 + i * 2, &ordinal, 2);
            builder.Put(dataOffset + (names - dataRva), name.c_str(), name.size() + 1);
            names += static_cast<uint32_t>(name.size() + 1);
        }
        exportSize = names - dataRva;
        return *this;
    }

    Image& AddSymbols(const std::vector<Symbol>& symbols)
    {
        std::string strings(4, '\0');
        for (const Symbol& symbol : symbols)
        {
            uint8_t entry[18] = {};
            if (symbol.name.size() > 8)
            {
                const auto place = static_cast<uint32_t>(strings.size());
                memcpy(entry + 4, &place, 4);
                strings += symbol.name + '\0';
            }
            else
            {
                memcpy(entry, symbol.name.data(), symbol.name.size());
            }
            memcpy(entry + 8, &symbol.value, 4);
            memcpy(entry + 12, &symbol.section, 2);
            memcpy(entry + 14, &symbol.type, 2);
            entry[16] = symbol.storageClass;
            entry[17] = symbol.auxiliaries;
            builder.contents.insert(builder.contents.end(), entry, entry + sizeof(entry));
            builder.contents.resize(builder.contents.size() + symbol.auxiliaries * sizeof(entry), 0xFF);
            symbolCount += 1U + symbol.auxiliaries;
        }
        const auto size = static_cast<uint32_t>(strings.size());
        memcpy(strings.data(), &size, 4);
        builder.contents.insert(builder.contents.end(), strings.begin(), strings.end());
        return *this;
    }

    std::vector<uint8_t> Build() const
    {
        std::vector<uint8_t> file = builder.Build();
        const uint32_t headers = builder.ntHeadersOffset;
        if (exportSize != 0)
        {
            Put(file, headers + 24 + 96, dataRva);
            Put(file, headers + 24 + 100, exportSize);
        }
        if (symbolCount != 0)
        {
            Put(file, headers + 12, symbolsOffset);
            Put(file, headers + 16, symbolCount);
        }
        Put(file, headers + 22, uint16_t{0x2102});
        return file;
    }

private:
    ImageBuilder builder;
    uint32_t exportSize = 0;
    uint32_t symbolCount = 0;
};

std::string Describe(const std::vector<ImageFunction>& functions)
{
    std::string text;
    for (const ImageFunction& found : functions)
    {
        text += found.name + (found.isLocal ? " local " : " ") + std::to_string(found.rva) + "\n";
    }
    return text;
}

TEST(ImageSymbols, ExportsAreTheFunctionsOfTheImageItself)
{
    const ImageSymbols image(Image()
                                 .Export({{"First", codeRva + 0x10},
                                          {"_ZN1A1bEv", codeRva + 0x20},
                                          {"Forwarder", 0},
                                          {"Thunk", thunkRva},
                                          {"data", dataRva + 0x200}})
                                 .Build());
    EXPECT_EQ("", image.Error());
    EXPECT_TRUE(image.IsLibrary());
    EXPECT_EQ("First 4112\n_ZN1A1bEv 4128\n", Describe(image.Exports()));
    EXPECT_EQ(dataRva + 0x200, image.FindExport("data"));
    EXPECT_EQ(0u, image.FindExport("Forwarder"));
    EXPECT_EQ(0u, image.FindExport("First2"));
}

TEST(ImageSymbols, SymbolTableHasExternalAndStaticFunctions)
{
    const ImageSymbols image(Image()
                                 .AddSymbols({{".file", 0, 0xFFFE, 0, 103, 1},
                                              {"_Short", 0x10, 1, function, external},
                                              {"__ZN4Long4NameEi", 0x20, 1, function, external, 2},
                                              {"_Static", 0x30, 1, function, local},
                                              {"_Twelve@12", 0x40, 1, function, external},
                                              {"@Fast@4", 0x50, 1, function, external},
                                              {"_data", 0x10, 2, 0, external},
                                              {"_InData", 0x10, 2, function, external},
                                              {"_Label", 0x10, 1, function, 6},
                                              {"_Thunk", thunkRva - codeRva, 1, function, external},
                                              {"_None", 0x10, 0, function, external},
                                              {"_TooFar", 0x10, 3, function, external}})
                                 .Build());
    EXPECT_EQ("", image.Error());
    EXPECT_EQ("Short 4112\n_ZN4Long4NameEi 4128\nStatic local 4144\nTwelve@12 4160\n@Fast@4 4176\n",
              Describe(image.SymbolTable()));
    EXPECT_EQ("", Describe(image.Exports()));
}

TEST(ImageSymbols, FileThatEndsTooEarlyIsIncompleteWhereverItEnds)
{
    const std::vector<uint8_t> whole =
        Image().Export({{"First", codeRva}}).AddSymbols({{"_First", 0, 1, function, external}}).Build();
    for (size_t size = 0; size < whole.size(); ++size)
    {
        const ImageSymbols image(
            std::vector<uint8_t>(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)));
        ASSERT_NE("", image.Error()) << size;
        ASSERT_EQ(0u, image.Exports().size() + image.SymbolTable().size()) << size;
        ASSERT_EQ(0u, image.FindExport("First")) << size;
    }
    EXPECT_TRUE(ImageSymbols(std::vector<uint8_t>(whole.begin(), whole.end() - 1)).IsIncomplete());
    EXPECT_FALSE(ImageSymbols(whole).IsIncomplete());
}

TEST(ImageSymbols, DamagedNumbersReadNothingOutsideOfTheFile)
{
    const std::vector<uint8_t> whole =
        Image().Export({{"First", codeRva}}).AddSymbols({{"_First", 0, 1, function, external}}).Build();
    for (size_t offset = 0; offset < whole.size(); ++offset)
    {
        std::vector<uint8_t> damaged = whole;
        damaged[offset] = 0xFF;
        const ImageSymbols image(damaged);
        EXPECT_GE(1u, image.Exports().size());
        EXPECT_GE(2u, image.SymbolTable().size());
    }
}

TEST(ImageSymbols, OtherFilesAreRefusedInASentence)
{
    EXPECT_EQ("it isn't a Windows library", ImageSymbols({}).Error());
    EXPECT_EQ("it isn't a Windows library", ImageSymbols({'n', 'o'}).Error());
    const ImageSymbols other(Image(IMAGE_FILE_MACHINE_AMD64).Build());
    EXPECT_EQ("it is built for 64-bit x64, but the host is a 32-bit x86 program", other.Error());
    EXPECT_FALSE(other.IsIncomplete());
}

TEST(ImageSymbols, HeaderAndSizeTellBuildsApart)
{
    std::vector<uint8_t> file = Image().Build();
    const ImageSymbols first(file);
    Put(file, 0x80 + 8, 0x11223344); // TimeDateStamp
    const ImageSymbols second(file);
    EXPECT_EQ(file.size(), first.FileSize());
    EXPECT_EQ(20u, first.FileHeader().size());
    EXPECT_NE(first.FileHeader(), second.FileHeader());
}

TEST(ImageSymbols, NamesOfCppAreReadable)
{
    EXPECT_EQ("Step(int)", ReadableName("_Z4Stepi"));
    EXPECT_EQ("Step", ReadableName("Step"));
    EXPECT_EQ("_Znot", ReadableName("_Znot"));
}
} // namespace
