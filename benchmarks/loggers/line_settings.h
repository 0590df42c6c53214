// line_settings.h: how a line looks, and when the system gets it.

#ifndef BENCHMARKS_LOGGERS_LINE_SETTINGS_H
#define BENCHMARKS_LOGGERS_LINE_SETTINGS_H

namespace bench {

/// What stands before the tag that every line begins with.
enum class Prefix { None, TimeAndThread };

/// Never: when a buffer is full.
enum class Flush { EachLine, Never };

}  // namespace bench

#endif  // BENCHMARKS_LOGGERS_LINE_SETTINGS_H
