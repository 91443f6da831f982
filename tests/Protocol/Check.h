#pragma once

/// \file
/// Comparisons for the program that is generated from the tables of docs/protocol.md; for its main thread.

#include "Agent/Protocol/Blob.h"
#include "bridge/Recording/BlobLayout.h"

#include <stdio.h>
#include <string.h>
#include <string>
#include <vector>

using namespace Torvane;

inline int differences = 0;
inline int comparisons = 0;

inline void Check(const std::string& what, size_t actual, size_t documented)
{
    ++comparisons;
    if (actual != documented)
    {
        ++differences;
        printf("%s: the document has %zu, the code %zu\n", what.c_str(), documented, actual);
    }
}

inline void CheckName(const std::string& what, const char* actual, const char* documented)
{
    ++comparisons;
    const std::string actualName = actual == nullptr ? "none" : actual;
    const std::string documentedName = documented == nullptr ? "none" : documented;
    if (actualName != documentedName)
    {
        ++differences;
        printf("%s: the document has %s, the recorder %s\n", what.c_str(), documentedName.c_str(),
               actualName.c_str());
    }
}

struct DocumentedField
{
    const char* name;
    size_t offset;
    size_t size;
};

/// A layout of that name, of a fixed part or of something nested in one; null if there is none.
inline const Bridge::RecordLayout* FindLayout(const Bridge::RecordLayout* layout, const std::string& name)
{
    if (layout == nullptr || layout->name == name)
    {
        return layout;
    }
    for (const Bridge::FieldLayout& field : *layout)
    {
        if (const Bridge::RecordLayout* nested = FindLayout(field.elements, name))
        {
            return nested;
        }
    }
    return nullptr;
}

/// The recorder's layout of a record.
inline void CheckLayout(const std::string& name, size_t size, const std::vector<DocumentedField>& fields)
{
    const Bridge::RecordLayout* layout = nullptr;
    for (const Bridge::BlobLayout& blob : Bridge::AllBlobLayouts())
    {
        layout = layout != nullptr ? layout : FindLayout(blob.fixed, name);
    }
    Check(name + ", layouts", layout != nullptr, 1);
    if (layout == nullptr)
    {
        return;
    }
    Check(name + ", size in the recorder", layout->size, size);
    Check(name + ", fields in the recorder", layout->fieldCount, fields.size());
    for (size_t i = 0; i < fields.size() && i < layout->fieldCount; ++i)
    {
        const std::string what = name + "::" + fields[i].name + " in the recorder";
        CheckName(what, layout->fields[i].name, fields[i].name);
        Check(what + ", offset", layout->fields[i].offset, fields[i].offset);
        Check(what + ", size", layout->fields[i].size, fields[i].size);
    }
}

/// \param fixed the name of the fixed part's record; null for a Blob without payload.
inline void CheckBlob(const std::string& name, BlobType type, uint32_t number, Bridge::BlobSender sender,
                      const char* fixed)
{
    Check(name, static_cast<uint32_t>(type), number);
    const Bridge::BlobLayout* layout = Bridge::FindBlobLayout(type);
    Check(name + " in the recorder", layout != nullptr, 1);
    if (layout != nullptr)
    {
        CheckName(name, layout->name, name.c_str());
        CheckName(name + ", fixed part", layout->fixed == nullptr ? nullptr : layout->fixed->name, fixed);
        Check(name + ", sender in the recorder", static_cast<size_t>(layout->sender),
              static_cast<size_t>(sender));
    }
}

inline void CheckBlobCount(size_t documented)
{
    Check("Blobs in the recorder", Bridge::AllBlobLayouts().count, documented);
}

inline int Report()
{
    printf("%d comparisons, %d differences\n", comparisons, differences);
    return differences == 0 && comparisons != 0 ? 0 : 1;
}
