// destination.h: the file or terminal that the output goes to.

#ifndef ZOR_DEBUG_SRC_DESTINATION_H
#define ZOR_DEBUG_SRC_DESTINATION_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
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

    /// Keeps a file at most so many bytes long, unless a single text is longer: it is renamed to
    /// its name with ".1" behind it then, in place of an earlier one of that name, and a new one is
    /// begun. 0 is without limit. Nothing but files that this process alone writes is limited.
    void setLimit(std::uint64_t bytes);
    bool isLimited() const { return m_limit != 0 && m_isFile && !m_isShared; }

    enum class Limit { Kept, Failed };

    /// Before a write of so many bytes, which begins a line: keeps the limit. Failed, with errno
    /// set, where it could not be kept: the file grows on.
    Limit makeRoomFor(std::size_t length);

    /// The file's name as it was given.
    const char* pathPattern() const { return m_pathPattern; }

    /// Writes the text whole, as far as the system takes it; false where it did not take all, which
    /// is counted as a loss. Never raises SIGPIPE. May be called by several threads at once where
    /// isAtomic() says so; without cancellation by then, or with it held off.
    bool write(std::string_view text) const;

    /// As write(), for a line that tells of losses: it is none itself.
    bool tell(const char* p_line) const;

    /// As write(), but gives up at the deadline where nobody takes the text: false then.
    bool writeUntil(const Deadline& deadline, std::string_view text) const;

    /// Whether the system itself keeps texts of several threads apart. Standard error is never
    /// trusted to: anybody may redirect it to anything.
    bool isAtomic() const { return m_isAtomic && !isLimited(); }

    /// Whether a write may wait for a reader for ever.
    bool mayBlock() const { return m_mayBlock; }

    /// Whether it is a terminal that wants colours.
    bool isColourful() const { return m_isColourful; }

private:
    static constexpr std::size_t kMaxPath = 4096;

    void turnTo(int descriptor);
    bool writeToPipe(std::string_view text) const;
    bool finish(std::string_view text, ssize_t written) const;

    int m_descriptor = 2;
    bool m_isColourful = false;
    bool m_isAtomic = false;
    bool m_mayBreak = false;            // A pipe or socket, whose reader may go away.
    bool m_mayBlock = false;            // One of these or a terminal: it may take nothing for ever.
    bool m_isFile = false;              // A file that was named.
    bool m_isShared = false;            // With the parent process.
    std::uint64_t m_limit = 0;          // 0 for none.
    std::uint64_t m_size = 0;           // Of the file, while it is limited.
    char m_pathPattern[kMaxPath] = {};  // As it was given; empty for standard error.
};

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_DESTINATION_H
