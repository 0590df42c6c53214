#include "session_reader.h"

#include <cstring>
#include <filesystem>
#include <utility>

#include "session_parser.h"
#include "text_file.h"

namespace tv_browser {

SessionReader::SessionReader(std::istream& input, const std::string& name,
                             const std::string& pageFolder)
    : m_input(input), m_name(name), m_pageFolder(pageFolder) {}

SessionReader::Status SessionReader::next(Command* p_command) {
    std::string line;
    while (std::getline(m_input, line)) {
        ++m_lineNumber;
        ParsedLine parsed = parseLine(line);
        if (!parsed.error.empty()) {
            return refuse(parsed.error + listOnce());
        }
        if (!parsed.command) continue;

        std::string why;
        if (!findPage(&*parsed.command, &why)) return refuse(why);
        *p_command = std::move(*parsed.command);
        return Status::Ok;
    }
    return Status::End;
}

std::string SessionReader::listOnce() {
    if (std::exchange(m_hasListedCommands, true)) return "";
    return "; the commands are: " + knownCommands();
}

SessionReader::Status SessionReader::refuse(const std::string& why) {
    m_error = m_name + ":" + std::to_string(m_lineNumber) + ": " + why;
    return Status::Error;
}

// Reads the page although nobody needs it yet: a name that is misspelt is then reported with
// its line, and a session from a file before anything of it is played.
bool SessionReader::findPage(Command* p_command, std::string* p_why) const {
    auto* p_launch = std::get_if<command::Launch>(p_command);
    if (p_launch == nullptr) return true;
    PageFile& page = p_launch->page;
    page.path = (std::filesystem::path(m_pageFolder) / page.shown).string();
    std::string unused;
    const int error = readTextFile(page.path, &unused);
    if (error == 0) return true;
    *p_why = "cannot read page '" + page.path + "': " + std::strerror(error);
    return false;
}

}  // namespace tv_browser
