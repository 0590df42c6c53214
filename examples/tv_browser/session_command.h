// session_command.h: what a session can order.

#ifndef TV_BROWSER_SESSION_COMMAND_H
#define TV_BROWSER_SESSION_COMMAND_H

#include <chrono>
#include <cstdint>
#include <string>
#include <variant>

#include "events.h"

namespace tv_browser::command {

struct Tune {
    std::int32_t channel;
};
struct Key {
    std::string name;
};
struct Launch {
    std::string app;
    PageFile page;
};
struct Show {
    std::string app;
};
struct Hide {
    std::string app;
};
struct Stop {
    std::string app;
};
struct Slow {
    ModuleId module;
    std::chrono::milliseconds delay;
};
struct Call {
    ModuleId module;
    ModuleId other;
};
struct Misdial {
    ModuleId module;
};
struct Remind {
    ModuleId module;
    std::chrono::milliseconds delay;
};
struct Silence {
    ModuleId module;
};
struct Hoard {
    ModuleId module;
};
struct Say {
    std::string text;
};
struct Wait {
    std::chrono::milliseconds duration;
};
struct Memory {};
struct State {};
struct Quit {};

}  // namespace tv_browser::command

namespace tv_browser {

/// One line of a session. A new command is one more struct here, one entry in the parser's
/// table and one perform() of the player.
using Command =
    std::variant<command::Tune, command::Key, command::Launch, command::Show, command::Hide,
                 command::Stop, command::Slow, command::Call, command::Misdial, command::Remind,
                 command::Silence, command::Hoard, command::Say, command::Wait, command::Memory,
                 command::State, command::Quit>;

}  // namespace tv_browser

#endif  // TV_BROWSER_SESSION_COMMAND_H
