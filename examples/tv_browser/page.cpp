#include "page.h"

#include <cctype>

namespace tv_browser {
namespace {

// The text from `from` to the next `end`; empty when there is no such end.
std::string textUntil(const std::string& html, std::size_t from, const char* end) {
    const std::size_t to = html.find(end, from);
    return to == std::string::npos ? std::string() : html.substr(from, to - from);
}

// On one line and without surrounding blanks, whatever the page's layout was.
std::string inOneLine(const std::string& text) {
    std::string line;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        const bool blank = std::isspace(byte) != 0 || std::iscntrl(byte) != 0;
        if (!blank) {
            line += character;
        } else if (!line.empty() && line.back() != ' ') {
            line += ' ';
        }
    }
    if (!line.empty() && line.back() == ' ') line.pop_back();
    return line;
}

std::string titleOf(const std::string& html) {
    static const std::string kTag = "<title>";
    const std::size_t tag = html.find(kTag);
    if (tag == std::string::npos) return "untitled";
    const std::string title = inOneLine(textUntil(html, tag + kTag.size(), "<"));
    return title.empty() ? "untitled" : title;
}

}  // namespace

Page parsePage(const std::string& html) {
    static const std::string kAttribute = "data-key=\"";
    Page page;
    page.title = titleOf(html);
    page.sizeBytes = html.size();
    for (std::size_t at = html.find(kAttribute); at != std::string::npos;
         at = html.find(kAttribute, at)) {
        at += kAttribute.size();
        const std::string key = textUntil(html, at, "\"");
        const std::size_t tagEnd = html.find('>', at);
        if (key.empty() || tagEnd == std::string::npos) continue;
        page.keys[key] = inOneLine(textUntil(html, tagEnd + 1, "<"));
    }
    return page;
}

}  // namespace tv_browser
