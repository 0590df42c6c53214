// page.h: as much of a page as this browser understands.

#ifndef TV_BROWSER_PAGE_H
#define TV_BROWSER_PAGE_H

#include <cstddef>
#include <map>
#include <string>

namespace tv_browser {

/// A title, and what the page does on a key:
///
///     <title>Evening news</title>
///     <li data-key="red">opens the headlines</li>
struct Page {
    std::string title;                        ///< "untitled" when there is none.
    std::map<std::string, std::string> keys;  ///< Key name to what the page does on it.
    std::size_t sizeBytes = 0;
};

/// Takes any text for a page. What it does not understand it passes over, as browsers do.
Page parsePage(const std::string& html);

}  // namespace tv_browser

#endif  // TV_BROWSER_PAGE_H
