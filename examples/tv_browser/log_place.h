// log_place.h: where the log of the process goes.

#ifndef TV_BROWSER_LOG_PLACE_H
#define TV_BROWSER_LOG_PLACE_H

#include <string>

namespace tv_browser {

/// Sends the log into a file where it would mix with a story on the same terminal, unless --log
/// wants both, or the environment has sent it elsewhere. The file is begun anew; --save-log names
/// it.
///
/// To be called before anything else that may write to the log. The parser of the options is the
/// first that may, so the two options are looked for here.
///
/// @param argc,argv  Of main(). Left alone.
/// @return The file's path, or "" where the log was left alone.
std::string placeLog(int argc, const char* const* argv);

}  // namespace tv_browser

#endif  // TV_BROWSER_LOG_PLACE_H
