// text_file.h: reads a file whole.

#ifndef TV_BROWSER_TEXT_FILE_H
#define TV_BROWSER_TEXT_FILE_H

#include <string>

namespace tv_browser {

/// Reads the file at @p path, of 1 MiB at most. Returns 0, or the errno that tells why it
/// could not be read; then *p_text is unchanged.
[[nodiscard]] int readTextFile(const std::string& path, std::string* p_text);

}  // namespace tv_browser

#endif  // TV_BROWSER_TEXT_FILE_H
