#include "remote_control.h"

namespace tv_browser {
namespace {

constexpr const char* kKeys[] = {"red",   "green", "yellow",    "blue",       "ok",
                                 "back",  "exit",  "up",        "down",       "left",
                                 "right", "guide", "volume_up", "volume_down"};

}  // namespace

bool isKey(const std::string& name) {
    for (const char* key : kKeys) {
        if (name == key) return true;
    }
    return false;
}

std::string keyNames() {
    std::string names;
    for (const char* key : kKeys) {
        if (!names.empty()) names += ", ";
        names += key;
    }
    return names;
}

}  // namespace tv_browser
