// line_writer.h: makes whole lines of the pieces that threads write, and sends them out.

#ifndef ZOR_DEBUG_SRC_LINE_WRITER_H
#define ZOR_DEBUG_SRC_LINE_WRITER_H

#include <cstdint>

namespace zor_debug {

/// What stands before each line.
struct LinePrefix {
    bool wall = false;
    bool time = false;
    bool level = false;
    bool module = false;
    bool thread = false;

    bool isEmpty() const { return !wall && !time && !level && !module && !thread; }
};

class FormattedText;

/// Adds @p p_text, which is used up, to the calling thread's line, and writes what lines it
/// completes. A thread's incomplete line is kept back, so that no other line lands in it, until the
/// thread completes it or ends, or the process exits.
///
/// The functions below may be called from any thread at any time.
void writeText(FormattedText* p_text);

/// Writes a line of the library's own, which ends in a line end, without prefix.
void writeOwnLine(const char* p_line);

void setPrefix(LinePrefix prefix);

/// Keeps the file below so many bytes; 0 is without limit. See Destination::setLimit().
void limitFile(std::uint64_t bytes);

/// Turns to standard error, or to a file; see Destination.
void turnToStandardError();
bool turnToFile(const char* p_path);

/// Makes the writer ready for threads that end. Once per process, before the first text.
void prepareLineWriter();

/// Held over a fork, so that the child finds everything whole.
void lockLineWriter();
void unlockLineWriter();

/// In a forked child, locked: the lines in the making are the parent's, which will write them.
void resetLineWriterAfterFork();

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_LINE_WRITER_H
