#include "timeline_row.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace tv_browser {
namespace {

const char* signText(Sign sign) {
    switch (sign) {
        case Sign::Does:
            return "  ";
        case Sign::Asks:
            return "->";
        case Sign::Tells:
            return "=>";
        case Sign::Replied:
            return "<-";
        case Sign::GaveUp:
            return "!!";
    }
    return "??";
}

std::string formatted(double value, int decimals, int width = 0) {
    char text[64];
    std::snprintf(text, sizeof text, "%*.*f", width, decimals, value);
    return text;
}

std::string padded(std::string text, std::size_t width) {
    if (text.size() < width) text.append(width - text.size(), ' ');
    return text;
}

// ---- plain ----

constexpr std::size_t kModuleWidth = 19;
constexpr std::size_t kPlainTextWidth = 48;

std::string plainRow(const std::string& time, const std::string& module, Sign sign,
                     const std::string& text) {
    return time + "  " + padded(module, kModuleWidth) + "  " + signText(sign) + " " + text;
}

// ---- on a terminal ----

constexpr int kTimeWidth = 6;
constexpr std::size_t kModuleColumn = std::size_t{kTimeWidth} + 1;
constexpr std::size_t kTextColumn = kModuleColumn + kModuleWidth + 1 + 2 + 1;
constexpr std::size_t kMinColumns = 60;
// Further to the right a duration is hard to connect with its row.
constexpr std::size_t kMaxDurationColumn = 100;

constexpr const char* kBold = "1";
constexpr const char* kDim = "2";
constexpr const char* kRed = "1;31";

const char* colourOf(ModuleId module) {
    switch (module) {
        case ModuleId::ApplicationManager:
            return "94";
        case ModuleId::HbbtvController:
            return "33";
        case ModuleId::BrowserEngine:
            return "36";
        case ModuleId::OpAppHost:
            return "32";
        case ModuleId::Broadcaster:
            return "35";
        case ModuleId::Session:
            return kDim;
        case ModuleId::Viewer:
        case ModuleId::Nobody:
        case ModuleId::Everybody:
            return kBold;
    }
    return kDim;
}

// Code points of UTF-8: what is no continuation byte.
std::size_t widthOf(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U;
    }));
}

std::string withoutBlanksAtItsEnd(std::string text) {
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

// The pieces of a text, each but the last with the separator behind it.
std::vector<std::string> piecesOf(const std::string& text, char separator) {
    std::vector<std::string> pieces(1);
    for (std::size_t i = 0; i < text.size(); ++i) {
        pieces.back() += text[i];
        if (text[i] == separator && i + 1 < text.size()) pieces.emplace_back();
    }
    return pieces;
}

// Words, and for a word that is wider than a line what stands between its commas.
std::vector<std::string> breakable(const std::string& text, std::size_t width) {
    std::vector<std::string> pieces;
    for (const std::string& word : piecesOf(text, ' ')) {
        if (widthOf(withoutBlanksAtItsEnd(word)) <= width) {
            pieces.push_back(word);
            continue;
        }
        for (const std::string& part : piecesOf(word, ',')) pieces.push_back(part);
    }
    return pieces;
}

// At least one line. What is wider than a line and cannot be broken stands alone, and sticks out.
std::vector<std::string> wrapped(const std::string& text, std::size_t width) {
    std::vector<std::string> lines(1);
    for (const std::string& piece : breakable(text, width)) {
        std::string& line = lines.back();
        if (!line.empty() && widthOf(withoutBlanksAtItsEnd(line + piece)) > width) {
            line = withoutBlanksAtItsEnd(line);
            lines.push_back(piece);
        } else {
            line += piece;
        }
    }
    return lines;
}

// The module in front of the text of what is asked, told or replied: "viewer: ...".
std::optional<ModuleId> moduleSpokenTo(const Row& row) {
    if (row.sign == Sign::Does) return std::nullopt;
    const std::string name = row.text.substr(0, row.text.find(':'));
    for (const ModuleId module :
         {ModuleId::ApplicationManager, ModuleId::HbbtvController, ModuleId::BrowserEngine,
          ModuleId::OpAppHost, ModuleId::Everybody}) {
        if (name == nameOf(module)) return module;
    }
    return std::nullopt;
}

}  // namespace

std::string PlainLayout::heading(const std::string& title) const {
    return title +
           "\n"
           "   -> asks and waits   <- gets the reply   => tells, does not wait   !! in vain, or "
           "late"
           "\n\n" +
           plainRow(" seconds", "module", Sign::Does, padded("what happens", kPlainTextWidth)) +
           "   duration\n";
}

std::string PlainLayout::row(const Row& row) const {
    const std::string time = formatted(row.seconds, 3, 8);
    if (!row.duration) return plainRow(time, nameOf(row.module), row.sign, row.text) + "\n";
    return plainRow(time, nameOf(row.module), row.sign, padded(row.text, kPlainTextWidth)) +
           formatted(row.duration->count(), 1, 8) + " ms\n";
}

std::string PlainLayout::chapter(double seconds, const std::string& text) const {
    return "\n" + formatted(seconds, 3, 8) + "  " + text + "\n";
}

TerminalLayout::TerminalLayout(std::size_t columns, bool colours)
    : m_columns(std::max(columns, kMinColumns)), m_colours(colours) {}

std::string TerminalLayout::heading(const std::string& title) const {
    return painted(kBold, title) +
           "\n"
           "  -> asks, waits   <- gets the reply   => tells, goes on   !! in vain, or late\n";
}

std::string TerminalLayout::row(const Row& row) const {
    std::vector<std::string> lines = wrapped(row.text, m_columns - kTextColumn);
    std::string duration;
    if (row.duration) {
        duration = formatted(row.duration->count(), 1) + " ms";
        const std::size_t right = std::min(m_columns, kMaxDurationColumn) - kTextColumn;
        if (widthOf(lines.back()) + 1 + duration.size() > right) lines.emplace_back();
        duration.insert(0, right - widthOf(lines.back()) - duration.size(), ' ');
    }

    const auto addressee = moduleSpokenTo(row);
    if (row.sign == Sign::GaveUp) {
        for (std::string& line : lines) line = painted(kRed, line);
    } else if (addressee) {
        const std::string name = nameOf(*addressee);
        lines.front().replace(0, name.size(), painted(colourOf(*addressee), name));
    }

    const std::string sign = signText(row.sign);
    std::string text = painted(kDim, formatted(row.seconds, 3, kTimeWidth)) + " " +
                       painted(colourOf(row.module), padded(nameOf(row.module), kModuleWidth)) +
                       " " + (row.sign == Sign::GaveUp ? painted(kRed, sign) : sign) + " ";
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (i > 0) text += "\n" + std::string(kTextColumn, ' ');
        text += lines[i];
    }
    return text + painted(kDim, duration) + "\n";
}

std::string TerminalLayout::chapter(double seconds, const std::string& text) const {
    std::string chapter = "\n" + painted(kDim, formatted(seconds, 3, kTimeWidth)) + " ";
    bool isFirst = true;
    for (const std::string& line : wrapped(text, m_columns - kModuleColumn)) {
        if (!isFirst) chapter += std::string(kModuleColumn, ' ');
        isFirst = false;
        chapter += painted(kBold, line) + "\n";
    }
    return chapter;
}

std::string TerminalLayout::painted(const char* colour, const std::string& text) const {
    if (!m_colours || text.empty()) return text;
    return std::string("\033[") + colour + "m" + text + "\033[0m";
}

}  // namespace tv_browser
