// command_line.h: the options of one of the browser's programs.

#ifndef BASE_UTILS_COMMAND_LINE_H
#define BASE_UTILS_COMMAND_LINE_H

#include <charconv>
#include <cmath>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include "base/export.h"

struct option;  // <getopt.h>

namespace tevalon::base::utils {

/// Reads options from an argument vector, erases in it what it read, and prints the help.
///
///     CommandLine commandLine(argc, argv, "usage: prog [options]\n", "", true);
///     commandLine.AddOption("volume", 'v', true, "Start at this volume", true, nullptr);
///     commandLine.AddOption("profile", "Play in this profile", true);
///     std::vector<std::string> notUnderstood;
///     commandLine.Parse(&notUnderstood);
///     const int volume = commandLine.GetOptionValue("volume", 30);
///     if (commandLine.HasOption("profile")) ... commandLine.GetOptionValue("profile") ...
///
/// Lifecycle: declare options, Parse() once, then ask.
///
/// Thread-safety: an object belongs to one thread, and no two objects may be in Parse() at
/// once, for the C library's option parser keeps its place in global variables.
class TEVALON_BASE_EXPORT CommandLine {
public:
    /// @param argc,argv    The process's arguments. Not owned; Parse() writes into the strings
    ///                     and reorders the vector. Must outlive Parse().
    /// @param usageText    Printed ahead of the help lines, as it stands.
    /// @param extraText    Kept for the program's own use.
    /// @param addDefaults  Whether to call AddDefaultOptions().
    CommandLine(int argc, char** argv, const std::string& usageText, const std::string& extraText,
                bool addDefaults);
    /// @{
    /// A copy shares the argument vector, and has what was declared and parsed so far.
    CommandLine(const CommandLine&);
    CommandLine& operator=(const CommandLine&);
    /// @}
    ~CommandLine();

    /// As given at construction.
    int argc() const { return m_argc; }
    /// The vector given at construction, with what Parse() erased.
    char** argv() const { return m_argv; }

    /// Declares an option. A letter that is taken already is reported by an error line and
    /// then belongs to the new option.
    ///
    /// @param longName     How the option is asked for later; null declares nothing. Not
    ///                     copied: must live until Parse() has returned, as must @p aliases.
    /// @param shortName    Its letter. A '\0' or a ':' cannot be typed, and would change how the
    ///                     other letters are read: the option is then declared by its long name
    ///                     alone, or not at all where it has none. A '?' stands for what is not
    ///                     understood, too.
    /// @param hasLongName  Whether --longName and the aliases may be typed as well.
    /// @param description  Its line in the help.
    /// @param hasArgument  Whether a value follows.
    /// @param aliases      Further long spellings; null entries are passed over.
    void AddOption(const char* longName, char shortName, bool hasLongName,
                   const std::string& description, bool hasArgument,
                   const std::vector<const char*>& aliases);

    /// The same with one further spelling, or none when @p alias is null.
    void AddOption(const char* longName, char shortName, bool hasLongName,
                   const std::string& description, bool hasArgument, const char* alias);

    /// Declares an option that has no letter. Its help line starts with its long name, and Parse()
    /// empties the very argument that it was given in, and its value.
    void AddOption(const char* longName, const std::string& description, bool hasArgument,
                   const std::vector<const char*>& aliases = {});

    /// Declares help, url, sw, hw-dfb, hw-gles, quit-on-render-crash and disable-input.
    void AddDefaultOptions();

    /// Reads the arguments and empties, in place, the strings of those it understood. Unknown
    /// options and missing values are passed over in silence. With --help it prints usage and
    /// help to standard error and ends the process with status 0. Only the first call does
    /// anything.
    void Parse();

    /// The same, and says what it passed over: appends to @p p_notUnderstood each unknown option,
    /// option whose value is missing, and value of an option that takes none, in their order: a
    /// letter as "-z", a long option as it was typed. Nothing from a second call.
    ///
    /// @param p_notUnderstood  Not owned; null is the plain Parse().
    void Parse(std::vector<std::string>* p_notUnderstood);

    /// Whether the option was given. Before Parse(): false.
    bool HasOption(const std::string& longName) const;

    /// The value that was given last, or "".
    std::string GetOptionValue(const std::string& longName) const;

    /// Reads the value as a T: a std::string as it is; an integer or a floating number, decimal and
    /// whole, in the range of T; a bool from "true", "yes", "on", "1" or nothing, as an option
    /// without value has it, and "false", "no", "off" or "0".
    ///
    /// @return False, with @p p_value untouched, where the option was not given or its value is no
    /// T.
    template <typename T>
    bool ReadOptionValue(const std::string& longName, T* p_value) const;

    /// The value as ReadOptionValue() reads it, or @p fallback.
    template <typename T>
    T GetOptionValue(const std::string& longName, const T& fallback) const {
        T value = fallback;
        (void)ReadOptionValue(longName, &value);
        return value;
    }
    /// The same for a text.
    std::string GetOptionValue(const std::string& longName, const char* fallback) const {
        return GetOptionValue(longName, std::string(fallback != nullptr ? fallback : ""));
    }

private:
    TEVALON_BASE_LOCAL void addLongNames(const char* longName, bool hasArgument, int value,
                                         const std::vector<const char*>& aliases);
    TEVALON_BASE_LOCAL void keepNotUnderstood(std::vector<std::string>* p_notUnderstood) const;
    TEVALON_BASE_LOCAL void appendHelpLine(const char* longName, char shortName, bool hasLongName,
                                           const std::string& description, bool hasArgument,
                                           const std::vector<const char*>& aliases);
    TEVALON_BASE_LOCAL void finishParsing();
    TEVALON_BASE_LOCAL void takeOption(int value, int longIndex);

    bool m_parsed = false;
    int m_argc;
    char** m_argv;
    std::map<std::string, std::string> m_values;
    std::map<char, std::string> m_shortToLong;
    std::string m_optString;
    std::vector<option> m_longOptions;
    std::string m_helpText;
    std::string m_usageText;
    std::string m_extraText;
};

template <typename T>
bool CommandLine::ReadOptionValue(const std::string& longName, T* p_value) const {
    if (!HasOption(longName)) return false;
    const std::string text = GetOptionValue(longName);
    if constexpr (std::is_same_v<T, bool>) {
        const bool isTrue =
            text.empty() || text == "true" || text == "yes" || text == "on" || text == "1";
        if (!isTrue && text != "false" && text != "no" && text != "off" && text != "0") {
            return false;
        }
        *p_value = isTrue;
    } else if constexpr (std::is_arithmetic_v<T>) {
        T number = {};
        const char* const p_end = text.data() + text.size();
        const std::from_chars_result result = std::from_chars(text.data(), p_end, number);
        if (result.ec != std::errc() || result.ptr != p_end) return false;
        if constexpr (std::is_floating_point_v<T>) {
            if (!std::isfinite(number)) return false;  // Read from "inf" or "nan".
        }
        *p_value = number;
    } else {
        *p_value = text;
    }
    return true;
}

}  // namespace tevalon::base::utils

#endif  // BASE_UTILS_COMMAND_LINE_H
