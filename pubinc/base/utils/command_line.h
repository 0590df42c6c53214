// command_line.h: the options of one of the browser's programs.

#ifndef BASE_UTILS_COMMAND_LINE_H
#define BASE_UTILS_COMMAND_LINE_H

#include <map>
#include <string>
#include <vector>

#include "base/export.h"

struct option;  // <getopt.h>

namespace tevalon::base::utils {

/// Reads options from an argument vector, erases in it what it read, and prints the help.
///
///     CommandLine commandLine(argc, argv, "usage: prog [options]\n", "", true);
///     commandLine.AddOption("volume", 'v', true, "Start at this volume", true, nullptr);
///     commandLine.Parse();
///     if (commandLine.HasOption("volume")) ... commandLine.GetOptionValue("volume") ...
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
    /// @param shortName    Its letter.
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

    /// Declares help, url, sw, hw-dfb, hw-gles, quit-on-render-crash and disable-input.
    void AddDefaultOptions();

    /// Reads the arguments and empties, in place, the strings of those it understood. Unknown
    /// options and missing values are passed over in silence. With --help it prints usage and
    /// help to standard error and ends the process with status 0. Only the first call does
    /// anything.
    void Parse();

    /// Whether the option was given. Before Parse(): false.
    bool HasOption(const std::string& longName) const;

    /// The value that was given last, or "".
    std::string GetOptionValue(const std::string& longName) const;

private:
    TEVALON_BASE_LOCAL void appendHelpLine(const char* longName, char shortName, bool hasLongName,
                                           const std::string& description, bool hasArgument,
                                           const std::vector<const char*>& aliases);
    TEVALON_BASE_LOCAL void finishParsing();
    TEVALON_BASE_LOCAL void takeOption(char letter, int longIndex);

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

}  // namespace tevalon::base::utils

#endif  // BASE_UTILS_COMMAND_LINE_H
