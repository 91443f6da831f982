#include "tools/blobs/Exports.h"
#include "tools/blobs/Packing.h"
#include "tools/blobs/PageData.h"
#include "tools/blobs/PageParts.h"

namespace Torvane::Blobs
{
namespace
{
/// Of the data in one script element, well below the longest string of a browser; a multiple of 4.
constexpr size_t longestPart = 64 << 20;

std::string AsHtml(const std::string& text)
{
    std::string html;
    for (const char character : text)
    {
        switch (character)
        {
        case '<':
            html += "&lt;";
            break;
        case '&':
            html += "&amp;";
            break;
        default:
            html.push_back(character);
            break;
        }
    }
    return html;
}

/// Appends the page's markup from `position` to the next `mark`, and moves `position` past it.
void AppendUpTo(std::string& page, size_t& position, const std::string& mark)
{
    const std::string markup = pageMarkup;
    const size_t end = markup.find(mark, position);
    page.append(markup, position, end - position);
    position = end + mark.size();
}
} // namespace

std::string MakePage(const Recording& recording, const Filter& filter, const std::string& title)
{
    const std::string data = Base64(Deflate(MakePageData(recording, filter, title)));
    std::string page;
    size_t position = 0;
    AppendUpTo(page, position, "@TITLE@");
    page += AsHtml(title);
    AppendUpTo(page, position, "@STYLE@");
    page += pageStyle;
    AppendUpTo(page, position, "@DATA@");
    for (size_t begin = 0; begin < data.size(); begin += longestPart)
    {
        page +=
            "<script type=\"text/plain\" class=\"data\">" + data.substr(begin, longestPart) + "</script>\n";
    }
    AppendUpTo(page, position, "@SCRIPT@");
    page += pageScript;
    return page + (pageMarkup + position);
}
} // namespace Torvane::Blobs
