// values.cpp: values of any kind, the command line, texts, digests.
#include <cstdio>
#include <string>
#include <vector>

#include "base/container.h"
#include "base/utils.h"

using namespace tevalon::base;
using container::CommonValue;

int main() {
    // A value of many kinds, which converts to any of them and never fails to.
    CommonValue volume = 65537;
    std::printf("%s, as short %d\n", volume.convertToStringType().c_str(),
                static_cast<short>(volume));
    volume = std::string("1");
    std::printf("'%s' as a number: %d\n", volume.convertToStringType().c_str(),
                static_cast<int>(volume));
    const CommonValue nested = CommonValue::Array{1, true, 0.5, CommonValue::Array{}};
    std::printf("%s\n", nested.convertToStringType().c_str());

    // The options that it reads it erases in the argument vector, for whoever reads that next.
    std::vector<std::string> words = {"browser", "--url=page.html", "--volume=7", "-x"};
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    utils::CommandLine options(4, arguments.data(), "usage: browser [options]\n", "", true);
    options.AddOption("volume", 'v', true, "Start at this volume", true, nullptr);
    options.Parse();
    std::printf("url '%s', volume '%s', sw %d\n", options.GetOptionValue("url").c_str(),
                options.GetOptionValue("volume").c_str(), options.HasOption("sw"));

    // Lenient numbers: what stands behind the digits is not looked at.
    int number = 0;
    std::printf("%d", dstoi("12ab", number));
    std::printf(" %d\n", number);
    std::vector<std::string> parts;
    separateStr("a,b;;c", ",;", parts);
    std::printf("%zu parts, the third '%s'\n", parts.size(), parts[2].c_str());

    // Digests and checksums.
    std::printf("%s\n", utils::MD5("abc").hexDigest().c_str());
    const std::string digits = "123456789";
    const auto* bytes = reinterpret_cast<const unsigned char*>(digits.data());
    std::printf("%08X\n", utils::CheckSum().crc_32(bytes, 9));

    // Strings that all modules of the process share.
    ::base::set_process_property("input", "enabled");
    std::printf("input is %s\n", ::base::get_process_property("input").c_str());
}
