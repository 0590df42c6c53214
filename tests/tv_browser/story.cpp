#include "tv_browser/story.h"

#include <algorithm>
#include <iterator>
#include <regex>
#include <sstream>

namespace test {
namespace {

// Calls use(seconds, text) for each row and chapter.
template <typename Use>
void forEachRow(const std::string& output, Use use) {
    static const std::regex kRow(R"( *(\d+\.\d{3})  (.*))");
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (std::regex_match(line, match, kRow)) use(std::stod(match[1]), match[2].str());
    }
}

std::string withoutDuration(const std::string& row) {
    static const std::regex kDuration(R"( +\d+\.\d ms$)");
    return std::regex_replace(row, kDuration, "");
}

std::string squeezed(const std::string& row) {
    std::string text;
    std::unique_copy(row.begin(), row.end(), std::back_inserter(text),
                     [](char left, char right) { return left == ' ' && right == ' '; });
    return text;
}

}  // namespace

std::vector<std::string> storyOf(const std::string& output) {
    std::vector<std::string> story;
    forEachRow(output, [&story](double, const std::string& row) {
        story.push_back(squeezed(withoutDuration(row)));
    });
    return story;
}

std::vector<double> secondsOf(const std::string& output) {
    std::vector<double> seconds;
    forEachRow(output, [&seconds](double time, const std::string&) { seconds.push_back(time); });
    return seconds;
}

testing::AssertionResult tellsInOrder(const std::vector<std::string>& story,
                                      const std::vector<std::string>& expected) {
    auto from = story.begin();
    for (const std::string& line : expected) {
        const auto found = std::find(from, story.end(), line);
        if (found == story.end()) {
            auto failure = testing::AssertionFailure() << "not told, or too early: " << line;
            failure << "\nthe story from the line told before it:";
            for (auto at = from; at != story.end(); ++at) failure << "\n  " << *at;
            return failure;
        }
        from = std::next(found);
    }
    return testing::AssertionSuccess();
}

int timesTold(const std::vector<std::string>& story, const std::string& part) {
    return static_cast<int>(std::count_if(
        story.begin(), story.end(),
        [&part](const std::string& line) { return line.find(part) != std::string::npos; }));
}

std::string contentsOf(std::FILE* p_file) {
    std::rewind(p_file);
    std::string text;
    for (int c = std::fgetc(p_file); c != EOF; c = std::fgetc(p_file)) {
        text += static_cast<char>(c);
    }
    return text;
}

}  // namespace test
