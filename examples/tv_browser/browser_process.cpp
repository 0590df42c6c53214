#include "browser_process.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <system_error>

#include "process_state.h"
#include "screen.h"
#include "session_parser.h"
#include "session_player.h"
#include "session_reader.h"
#include "session_settings.h"
#include "television.h"
#include "text_file.h"
#include "timeline.h"

namespace tv_browser {
namespace {

constexpr const char* kStandardInput = "-";

ExitStatus refuse(const std::string& why) {
    complain(why);
    return ExitStatus::Refused;
}

// Whether every line of the session can be played. Reports all that cannot.
bool rehearse(SessionReader session) {
    Command unused;
    bool isGood = true;
    while (true) {
        const SessionReader::Status status = session.next(&unused);
        if (status == SessionReader::Status::End) return isGood;
        if (status == SessionReader::Status::Ok) continue;
        complain(session.error());
        isGood = false;
    }
}

// A path below the working directory as one types it there.
std::string shortened(const std::string& path) {
    std::error_code error;
    const std::filesystem::path nearer = std::filesystem::proximate(path, error);
    return error || nearer.empty() || *nearer.begin() == ".." ? path : nearer.string();
}

void showFirstPage(const std::string& url, SessionPlayer* p_player) {
    if (url.empty()) return;
    p_player->play(command::Launch{"url", {url, url}});
    p_player->play(command::Show{"url"});
}

bool isTypedAtAKeyboard(const BrowserOptions& options) {
    return options.session == kStandardInput && isatty(STDIN_FILENO) != 0;
}

// Plays until the session quits, ends or is refused.
SessionReader::Status playAll(SessionReader* p_session, SessionPlayer* p_player, bool forgives) {
    Command command;
    while (!p_player->finished()) {
        const SessionReader::Status status = p_session->next(&command);
        if (status == SessionReader::Status::Error && forgives) {
            complain(p_session->error());  // Whoever typed it types it again.
            continue;
        }
        if (status != SessionReader::Status::Ok) return status;
        p_player->play(command);
    }
    return SessionReader::Status::End;
}

ExitStatus perform(SessionReader* p_session, const std::string& title,
                   const BrowserOptions& options) {
    const Screen screen;
    Timeline timeline(screen.story(), screen.layout());
    timeline.begin("tv_browser plays " + title);
    timeline.chapter("The set is turned on.");
    publishSettings(options);
    nameModulesAndEvents();
    Television television(timeline);
    if (!television.turnOn()) return ExitStatus::Failed;

    SessionPlayer player(timeline);
    if (screen.isTerminal()) player.summariseReports();
    showFirstPage(options.url, &player);
    const SessionReader::Status end = playAll(p_session, &player, isTypedAtAKeyboard(options));
    timeline.chapter("The set is turned off.");
    player.prepareTurnOff();
    television.turnOff();
    if (!options.logFile.empty()) {
        timeline.remark("The log is in " + shortened(options.logFile) +
                        "; --log shows it with the story.");
    }

    if (end == SessionReader::Status::Error) return ExitStatus::Refused;
    return timeline.complete() ? ExitStatus::Ok : ExitStatus::Failed;
}

// Reports a failure when all is over, so that it stands below the log and not in it.
ExitStatus performAndReport(SessionReader session, const std::string& title,
                            const BrowserOptions& options) {
    const ExitStatus status = perform(&session, title, options);
    if (status == ExitStatus::Refused) complain(session.error());
    if (status == ExitStatus::Failed) complain("cannot start the modules, or write the timeline");
    return status;
}

ExitStatus performStandardInput(const BrowserOptions& options) {
    if (isTypedAtAKeyboard(options)) complain("type one command a line: " + knownCommands());
    const ExitStatus status =
        performAndReport(SessionReader(std::cin, "<stdin>", ""), "standard input", options);
    // A stream tells a failed read and the end of its input apart no longer than stdio does.
    if (status == ExitStatus::Ok && std::ferror(stdin) != 0) {
        return refuse("cannot read standard input");
    }
    return status;
}

ExitStatus performFile(const BrowserOptions& options) {
    const std::filesystem::path path = options.session;
    std::string text;
    const int error = readTextFile(path.string(), &text);
    if (error != 0) {
        return refuse("cannot read session '" + path.string() + "': " + std::strerror(error));
    }

    const std::string folder = path.parent_path().string();
    std::istringstream draft(text);
    if (!rehearse(SessionReader(draft, path.string(), folder))) return ExitStatus::Refused;
    std::istringstream input(text);
    return performAndReport(SessionReader(input, path.string(), folder), path.filename().string(),
                            options);
}

}  // namespace

ExitStatus runBrowser(const BrowserOptions& options) {
    if (!options.url.empty()) {
        std::string unused;
        const int error = readTextFile(options.url, &unused);
        if (error != 0) {
            return refuse("cannot read page '" + options.url +
                          "' of --url: " + std::strerror(error));
        }
    }
    return options.session == kStandardInput ? performStandardInput(options) : performFile(options);
}

void complain(const std::string& why) {
    std::fprintf(stderr, "tv_browser: %s\n", why.c_str());
}

}  // namespace tv_browser
