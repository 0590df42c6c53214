#include "session_arguments.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <system_error>

#include "remote_control.h"

namespace tv_browser {
namespace {

constexpr std::int32_t kMaxChannel = 999;
constexpr std::int32_t kMaxMs = 60000;
constexpr std::size_t kMaxAppLength = 32;

// Not isalnum(), which asks the locale.
bool isNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_';
}

}  // namespace

std::string SessionArguments::app() {
    std::string word = text();
    const bool good =
        word.size() <= kMaxAppLength && std::all_of(word.begin(), word.end(), isNameCharacter);
    if (!good) refuse("APP is up to 32 letters, digits, '-' and '_'", word);
    return word;
}

std::int32_t SessionArguments::channel() {
    return number("CHANNEL", 1, kMaxChannel);
}

std::string SessionArguments::key() {
    std::string word = text();
    if (!isKey(word)) refuse("KEY is one of " + keyNames(), word);
    return word;
}

std::chrono::milliseconds SessionArguments::milliseconds() {
    return std::chrono::milliseconds(number("MS", 0, kMaxMs));
}

ModuleId SessionArguments::module() {
    const std::string word = text();
    const std::optional<ModuleId> named = moduleNamed(word);
    if (!named) refuse("MODULE is one of " + moduleNames(), word);
    return named.value_or(ModuleId::Session);
}

std::int32_t SessionArguments::number(const char* placeholder, std::int32_t min, std::int32_t max) {
    const std::string word = text();
    const char* end = word.data() + word.size();
    std::int32_t value = 0;
    const auto [stop, error] = std::from_chars(word.data(), end, value);
    if (error == std::errc() && stop == end && value >= min && value <= max) return value;
    refuse(std::string(placeholder) + " is a number from " + std::to_string(min) + " to " +
               std::to_string(max),
           word);
    return min;
}

void SessionArguments::refuse(const std::string& wanted, const std::string& word) {
    if (m_error.empty()) m_error = wanted + ", not '" + word + "'";
}

}  // namespace tv_browser
