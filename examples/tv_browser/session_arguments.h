// session_arguments.h: the words behind a command's name, taken for what they are to mean.

#ifndef TV_BROWSER_SESSION_ARGUMENTS_H
#define TV_BROWSER_SESSION_ARGUMENTS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "events.h"

namespace tv_browser {

/// Hands out one word per call, from left to right. A word that makes no sense is remembered in
/// error() and some value returned in its place: the caller looks once, when it has them all.
class SessionArguments {
public:
    /// @param words  The command's name and the words behind it, as many as will be asked for.
    explicit SessionArguments(const std::vector<std::string>& words) : m_words(words) {}

    /// Any word.
    std::string text() { return m_words[m_next++]; }

    /// The name of an application: up to 32 letters, digits, '-' and '_'.
    std::string app();

    /// A channel number from 1 to 999.
    std::int32_t channel();

    /// A key of the remote control.
    std::string key();

    /// Up to a minute.
    std::chrono::milliseconds milliseconds();

    /// A module with a mailbox.
    ModuleId module();

    /// What is wrong with the first word that makes no sense; empty when all do.
    const std::string& error() const { return m_error; }

private:
    std::int32_t number(const char* placeholder, std::int32_t min, std::int32_t max);
    void refuse(const std::string& wanted, const std::string& word);

    const std::vector<std::string>& m_words;
    std::size_t m_next = 1;  // Behind the command's name.
    std::string m_error;
};

}  // namespace tv_browser

#endif  // TV_BROWSER_SESSION_ARGUMENTS_H
