// main.cpp: a small TV browser, built on tevalon-base as a client module's engineer would.

#include <exception>
#include <string>

#include "browser_options.h"
#include "browser_process.h"
#include "log_place.h"

int main(int argc, char** argv) {
    try {
        tv_browser::BrowserOptions options;
        options.logFile = tv_browser::placeLog(argc, argv);
        std::string why;
        if (!tv_browser::readOptions(argc, argv, &options, &why)) {
            tv_browser::complain(why);
            return static_cast<int>(tv_browser::ExitStatus::Refused);
        }
        return static_cast<int>(tv_browser::runBrowser(options));
    } catch (const std::exception& error) {
        tv_browser::complain(error.what());
        return static_cast<int>(tv_browser::ExitStatus::Failed);
    }
}
