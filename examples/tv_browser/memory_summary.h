// memory_summary.h: the report of the system's memory in a few words.

#ifndef TV_BROWSER_MEMORY_SUMMARY_H
#define TV_BROWSER_MEMORY_SUMMARY_H

#include <string>

namespace tv_browser {

/// What /proc/meminfo says in one line for the timeline: "finds 497 MiB of memory, 213 MiB
/// available". "" where @p meminfo has no MemTotal and MemAvailable in kB.
std::string summariseMemory(const std::string& meminfo);

}  // namespace tv_browser

#endif  // TV_BROWSER_MEMORY_SUMMARY_H
