#include "session_settings.h"

#include "base/utils.h"

namespace tv_browser {
namespace {

// Process properties: modules that are loaded later find them as well as those built in.
constexpr const char* kBackend = "tv_browser.backend";
constexpr const char* kInput = "tv_browser.input";
constexpr const char* kDisabled = "disabled";

}  // namespace

void publishSettings(const BrowserOptions& options) {
    (void)base::set_process_property(kBackend, options.backend.c_str());
    (void)base::set_process_property(kInput, options.inputDisabled ? kDisabled : "enabled");
}

std::string backendSetting() {
    return base::get_process_property(kBackend);
}

bool isInputDisabled() {
    return base::get_process_property(kInput) == kDisabled;
}

}  // namespace tv_browser
