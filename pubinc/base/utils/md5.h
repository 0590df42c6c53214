// md5.h: the MD5 message digest of RFC 1321.

#ifndef BASE_UTILS_MD5_H
#define BASE_UTILS_MD5_H

#include <cstdint>
#include <iosfwd>
#include <string>

#include "base/export.h"

namespace tevalon::base::utils {

/// Computes one MD5 digest over bytes that arrive in pieces.
///
///     MD5 md5;
///     md5.update(piece, pieceLength);  // Any number of times.
///     std::string digest = md5.finalize().hexDigest();
///
/// Lifecycle: open from init() or construction until finalize(); to hash another message,
/// init() again. A copy carries the work done so far and goes on independently.
///
/// Thread-safety: an object belongs to one thread at a time. Nothing is shared between objects.
class TEVALON_BASE_EXPORT MD5 {
public:
    MD5() { init(); }
    /// Holds the digest of @p text at once: finalized.
    MD5(const std::string& text);

    /// Starts a new message, whatever was hashed before.
    void init();

    /// @{
    /// Appends @p length bytes. Null is allowed where @p length is 0. On a finalized object the
    /// bytes are taken, but the digest no longer changes.
    void update(const unsigned char* input, unsigned int length);
    void update(const char* input, unsigned int length);
    /// @}

    /// Closes the message and computes the digest; does nothing on a finalized object.
    /// @return This object.
    MD5& finalize();

    /// The digest as 32 lower-case hexadecimal digits; "" unless finalized.
    std::string hexDigest() const;
    /// The 16 bytes of the digest, which may contain zeros; "" unless finalized.
    std::string binDigest() const;
    /// The same as hexDigest().
    std::string md5() const;

    /// Sets whether this object counts as finalized, then prints @p other with output(): given
    /// itself, the object prints as it was before the change. Reopening does not start a new
    /// message: what finalize() computes next is the digest of none.
    void changeFinalized(bool value, MD5 other);

private:
    TEVALON_BASE_LOCAL unsigned int bytesInBuffer() const;
    TEVALON_BASE_LOCAL void transform(const unsigned char* blocks, unsigned int count);

    bool m_finalized = false;
    unsigned char m_buffer[64] = {};  // The current, incomplete block.
    std::uint32_t m_count[2] = {};    // Bits so far, low word first.
    std::uint32_t m_state[4] = {};    // The chaining values A, B, C, D.
    unsigned char m_digest[16] = {};  // Valid only when finalized.
};

/// Writes the hexadecimal digest, or nothing for an object that is not finalized.
TEVALON_BASE_EXPORT std::ostream& operator<<(std::ostream& out, MD5 md5);

/// Prints @p md5 and a line end to standard output, and flushes it.
TEVALON_BASE_EXPORT void output(MD5 md5);

}  // namespace tevalon::base::utils

#endif  // BASE_UTILS_MD5_H
