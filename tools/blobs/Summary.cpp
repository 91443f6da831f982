#include "tools/blobs/Summary.h"

#include "bridge/Recording/BlobDecoder.h"
#include "bridge/Recording/FieldText.h"

#include <algorithm>

namespace Torvane::Blobs
{
namespace
{
using Bridge::DecodedField;

constexpr KeyFields keyFields[] = {
    {BlobType::RegisterProjectPreferences, {"projectPreferencesFile", "directoryToBroker"}},
    {BlobType::RegisterProcess, {"executablePath", "processId"}},
    {BlobType::EnableModules, {"modules.path"}},
    {BlobType::DisableModules, {"modules.path"}},
    {BlobType::LoadPatchWindows, {"patchPath"}},
    {BlobType::PatchLoaded, {"patchPath", "base", "imageSize"}},
    {BlobType::Restart, {"executablePath", "commandLine"}},
    {BlobType::HandleExceptionWindows, {"record.code", "record.address", "threadId"}},
};
constexpr KeyFields noKeyFields = {};

/// Adds the fields at a path. Of a list, those of each of its elements.
void Find(const std::vector<DecodedField>& fields, const std::string& path,
          std::vector<const DecodedField*>& found)
{
    const size_t dot = path.find('.');
    const DecodedField* field = Bridge::FindField(fields, path.substr(0, dot));
    if (field == nullptr || field->isAbsent)
    {
        return;
    }
    if (dot == std::string::npos)
    {
        found.push_back(field);
        return;
    }
    const std::string rest = path.substr(dot + 1);
    if (field->kind != Bridge::FieldKind::RecordList)
    {
        Find(field->children, rest, found);
        return;
    }
    for (const DecodedField& element : field->children)
    {
        Find(element.children, rest, found);
    }
}

/// The end of a string, after "...", if it is longer than `longest` bytes.
std::string EndOf(const std::string& text, size_t longest)
{
    if (text.size() <= longest)
    {
        return text;
    }
    size_t begin = text.size() - longest + 3;
    while (begin < text.size() && (static_cast<uint8_t>(text[begin]) & 0xC0) == 0x80)
    {
        ++begin;
    }
    return "..." + text.substr(begin);
}
} // namespace

const KeyFields& KeyFieldsOf(BlobType type)
{
    const auto found = std::find_if(std::begin(keyFields), std::end(keyFields),
                                    [type](const KeyFields& candidate) { return candidate.type == type; });
    return found == std::end(keyFields) ? noKeyFields : *found;
}

std::string SummaryOf(const RecordedBlob& blob, size_t longestText)
{
    const uint8_t* payload = blob.Payload();
    auto fields = Bridge::DecodePayload(blob.Type(), payload, blob.PayloadSize());
    if (Bridge::FindBlobLayout(blob.Type()) == nullptr)
    {
        return fields.empty() ? "" : "payload=" + Bridge::FieldText(fields[0], payload);
    }
    std::string summary;
    const KeyFields& keys = KeyFieldsOf(blob.Type());
    for (const char* const* path = keys.paths; *path != nullptr; ++path)
    {
        std::vector<const DecodedField*> found;
        Find(fields, *path, found);
        for (size_t i = 0; i < found.size(); ++i)
        {
            DecodedField shown = *found[i];
            shown.text = EndOf(shown.text, longestText);
            summary += (i != 0 ? ", " : (summary.empty() ? "" : " ") + std::string(*path) + "=") +
                       Bridge::FieldText(shown, payload);
        }
    }
    const auto isShown = [&keys](const DecodedField& field) {
        return std::any_of(keys.paths, keys.paths + KeyFields::most,
                           [&field](const char* path) { return path != nullptr && path == field.name; });
    };
    fields.erase(std::remove_if(fields.begin(), fields.end(), isShown), fields.end());
    const std::string others = Bridge::FieldSummary(fields, payload);
    return summary + (summary.empty() || others.empty() ? "" : " ") + others;
}
} // namespace Torvane::Blobs
