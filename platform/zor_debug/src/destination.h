// destination.h: the file or terminal that the output goes to.

#ifndef ZOR_DEBUG_SRC_DESTINATION_H
#define ZOR_DEBUG_SRC_DESTINATION_H

#include <cstddef>
#include <string_view>

#include "deadline.h"

namespace zor_debug {

/// Where the output goes: standard error until told otherwise.
///
/// Constant-initialised and never destroyed. Thread safety: none; the writer gate guards it.
class Destination {
public:
    /// Looks at standard error, which may have been redirected since the process began.
    void useStandardError();

    /// Appends to the file @p p_path names, %p in it being the process id. False, with errno
    /// set and nothing changed, when it cannot be opened.
    bool useFile(const char* p_path);

    /// In a forked child: turns to the child's own file, if the name carries the process id.
    void followFork();

    /// Writes the text whole, as far as the system takes it. Never raises SIGPIPE. May be called by
    /// several threads at once where isAtomic() says so; without cancellation by then, or with it
    /// held off.
    void write(std::string_view text) const;

    /// As write(), but gives up at the deadline where nobody takes the text: false then.
    bool writeUntil(const Deadline& deadline, std::string_view text) const;

    /// Whether the system itself keeps texts of several threads apart. Standard error is never
    /// trusted to: anybody may redirect it to anything.
    bool isAtomic() const { return m_isAtomic; }

    /// Whether it is a terminal that wants colours.
    bool isColourful() const { return m_isColourful; }

private:
    static constexpr std::size_t kMaxPath = 4096;

    void turnTo(int descriptor);

    int m_descriptor = 2;
    bool m_isColourful = false;
    bool m_isAtomic = false;
    bool m_mayBreak = false;            // A pipe or socket, whose reader may go away.
    bool m_mayBlock = false;            // One of these or a terminal: it may take nothing for ever.
    char m_pathPattern[kMaxPath] = {};  // As it was given; empty for standard error.
};

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_DESTINATION_H
