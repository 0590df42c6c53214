// Splitting, suffixes and lower case, each beside a walk from byte to byte.

#include "base/utils/strings.h"

#include <cstdint>
#include <string>
#include <vector>

#include "support/expect.h"
#include "support/input.h"

namespace {

using namespace tevalon::base;

std::int32_t separateModel(const std::string& text, const std::string& delimiters,
                           std::vector<std::string>* p_out) {
    std::vector<std::string> pieces(1);
    for (const char c : text) {
        if (delimiters.find(c) == std::string::npos) {
            pieces.back() += c;
        } else {
            pieces.emplace_back();
        }
    }
    if (pieces.size() == 1) return -1;
    for (const std::string& piece : pieces) p_out->push_back(piece);
    return 0;
}

void compareSeparation(const std::string& text, const std::string& delimiters,
                       const std::vector<std::string>& before) {
    std::vector<std::string> actual = before;
    std::vector<std::string> expected = before;
    fuzz::expectEqual(separateStr(text, delimiters, actual),
                      separateModel(text, delimiters, &expected), "the status of a separation");
    fuzz::expectEqual(actual, expected, "the pieces");
}

// The text may be one of those that the output holds.
void compareSeparationOfOwn(const std::string& text, const std::string& delimiters) {
    std::vector<std::string> actual = {"", text};
    std::vector<std::string> expected = actual;
    (void)separateModel(text, delimiters, &expected);
    (void)separateStr(actual[1], delimiters, actual);
    fuzz::expectEqual(actual, expected, "the pieces of an element");
}

bool hasSuffixModel(const std::string& path, const std::string& suffix) {
    if (path.empty() || path.size() == suffix.size()) return false;
    std::string tail;
    for (std::size_t i = path.size(); i > 0; --i) {
        tail.insert(tail.begin(), path[i - 1]);
        if (path[i - 1] == '.') return tail == suffix;
    }
    return false;
}

std::string toLowerCaseModel(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* p_data, std::size_t size) {
    fuzz::Input input(p_data, size);
    const std::string delimiters = input.text(8);
    const std::vector<std::string> before(input.below(3), "kept");
    const std::string text = input.rest();
    compareSeparation(text, delimiters, before);
    compareSeparationOfOwn(text, delimiters);

    fuzz::expectEqual(hasSuffix(text, delimiters), hasSuffixModel(text, delimiters), "a suffix");
    const std::size_t dot = text.rfind('.');
    const std::string own = dot == std::string::npos ? text : text.substr(dot);
    fuzz::expectEqual(hasSuffix(text, own), hasSuffixModel(text, own), "a path's own suffix");

    fuzz::expectEqual(toLowerCase(text), toLowerCaseModel(text), "lower case");
    return 0;
}
