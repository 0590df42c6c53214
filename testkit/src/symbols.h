// symbols.h: which function and source line an address of code belongs to.

#ifndef TESTKIT_SRC_SYMBOLS_H
#define TESTKIT_SRC_SYMBOLS_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tevalon::testkit {

struct Frame {
    std::string function;
    std::string place;  ///< File and line; "?" where there is no debug information.
};

/// Asks addr2line, once for all addresses of a program or library.
class Symbols {
public:
    void add(std::uintptr_t address) { m_frames.emplace(address, std::vector<Frame>()); }
    void resolve();

    /// With what was inlined there, innermost first, but for the C++ library's and the explorer's
    /// own frames.
    const std::vector<Frame>& at(std::uintptr_t address) const;

private:
    std::map<std::uintptr_t, std::vector<Frame>> m_frames;
};

}  // namespace tevalon::testkit

#endif  // TESTKIT_SRC_SYMBOLS_H
