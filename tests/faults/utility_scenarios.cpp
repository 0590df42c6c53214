// Values and utilities.

#include <sys/stat.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "base/container.h"
#include "base/utils.h"
#include "faults/scenario.h"

namespace faults {
namespace {

using namespace tevalon::base;
using container::CommonValue;

const char* const kLongText = "a text that is too long for any string's own few bytes";

void commonValue(Run& run) {
    CommonValue text{std::string(kLongText)};
    CommonValue list(CommonValue::Array{CommonValue(1), text, CommonValue(2.5)});
    CommonValue copy(list);
    copy = text;
    copy = list;
    run.say("text", static_cast<std::string>(text));
    run.say("number", static_cast<std::string>(CommonValue(1234567890123456789LL)));
    run.say("point", CommonValue(container::Point{123456789, 987654321}).convertToStringType());
    run.say("list", list.convertToStringType());
    run.say("texts", static_cast<long>(static_cast<std::vector<std::string>>(list).size()));
    run.say("numbers", static_cast<long>(static_cast<std::vector<unsigned int>>(list).size()));
    run.calm();
    copy = list;
    run.say("copied then", static_cast<long>(copy.array().size()));
}

std::vector<std::string> g_arguments;

std::vector<char*> argumentsOf(const std::vector<const char*>& texts) {
    g_arguments.assign(texts.begin(), texts.end());
    std::vector<char*> pointers;
    for (std::string& argument : g_arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    return pointers;
}

void commandLine(Run& run) {
    std::vector<char*> argv = argumentsOf(
        {"program", "--an-option-with-a-long-name=a value that is longer than a string", "-s"});
    utils::CommandLine line(3, argv.data(), "usage of a program that has a long name\n",
                            "what else there is to say about it, at length\n", true);
    line.AddOption("an-option-with-a-long-name", 'o', true, "what it is good for, at length", true,
                   std::vector<const char*>{"alias"});
    line.AddOption("short-option-with-a-name", 's', true, "another one that is described", false,
                   "other");
    line.Parse();
    utils::CommandLine copy(line);
    copy = line;
    run.say("value", copy.GetOptionValue("an-option-with-a-long-name"));
    run.say("there", copy.HasOption("short-option-with-a-name") ? 1 : 0);
    run.calm();
    run.say("value then", line.GetOptionValue("an-option-with-a-long-name").empty() ? 0 : 1);
}

// Ends the process.
void commandLineHelp(Run& run) {
    std::vector<char*> argv = argumentsOf({"program", "--help"});
    utils::CommandLine line(2, argv.data(), "usage of a program that has a long name\n",
                            "what else there is to say about it, at length\n", true);
    run.say("parsing", 1);
    line.Parse();
}

void strings(Run& run) {
    std::string hex = "a prefix that is longer than a short string: ";
    std::vector<std::string> pieces;
    run.say("lower", toLowerCase("A TEXT THAT IS TOO LONG FOR A SHORT STRING"));
    run.say("hex", convert2HexStr(0x1234567890ABCDEFUL, hex, true));
    run.say("separated", separateStr(std::string(kLongText) + "," + kLongText, ",", pieces));
    run.say("pieces", static_cast<long>(pieces.size()));
    run.calm();
    pieces.clear();
    run.say("separated then", separateStr("a,b,c", ",", pieces));
    run.say("pieces then", static_cast<long>(pieces.size()));
}

void makeTree() {
    (void)mkdir("tree", 0700);
    (void)mkdir("tree/folder with a name that is long", 0700);
    makeFile("tree/file with a name that is rather long", "text");
    makeFile("tree/folder with a name that is long/file", "text");
}

void files(Run& run) {
    makeTree();
    run.say("exists", isPathExists("tree") ? 1 : 0);
    run.say("removed", rmDir("tree"));
    run.calm();
    makeTree();
    run.say("exists then", isPathExists("tree") ? 1 : 0);
    run.say("removed then", rmDir("tree"));
}

void folders(Run& run) {
    makeTree();
    run.say("removed", removeFolder("tree"));
    run.calm();
    makeTree();
    run.say("removed then", removeFolder("tree"));
}

void uuid(Run& run) {
    run.say("length", static_cast<long>(generateUUID().size()));
    run.calm();
    run.say("length then", static_cast<long>(generateUUID().size()));
}

void properties(Run& run) {
    const char* const name = "a property whose name is longer than a short string";
    (void)base::set_process_property(name, kLongText);
    run.say("property", base::get_process_property(name) == kLongText ? "as set" : "other");
    run.calm();
    (void)base::set_process_property(name, kLongText);
    run.say("property then", base::get_process_property(name) == kLongText ? "as set" : "other");
}

void digests(Run& run) {
    utils::MD5 md5(kLongText);
    std::ostringstream stream;
    stream << md5;
    utils::output(md5);
    utils::CheckSum sum;
    const auto* const bytes = reinterpret_cast<const unsigned char*>(kLongText);
    run.say("md5", md5.hexDigest());
    run.say("binary", static_cast<long>(md5.binDigest().size()));
    run.say("crc", static_cast<long>(sum.crc_32(bytes, 50)));
    run.calm();
    run.say("md5 then", utils::MD5(kLongText).md5());
}

}  // namespace

std::vector<Scenario> utilityScenarios() {
    return {
        {"common value", commonValue},
        {"command line", commandLine},
        {"command line help", commandLineHelp},
        {"strings", strings},
        {"files", files},
        {"folders", folders},
        {"uuid", uuid},
        {"properties", properties},
        {"digests", digests},
    };
}

}  // namespace faults
