#include "story.h"

#include <cinttypes>
#include <cstring>
#include <map>

#include "symbols.h"

namespace tevalon::testkit {
namespace {

constexpr std::size_t kFirstShown = 2;  // Of the steps that a thread makes in a row,
constexpr std::size_t kLastShown = 5;   // and before another one runs.

class Story {
public:
    Story(const RunRecord& record, FILE* p_out) : m_record(record), m_out(p_out) {
        for (std::uint32_t i = 0; i < record.eventCount; ++i) {
            const Event& event = record.events[i];
            for (std::size_t k = 0; k < event.frames; ++k) m_symbols.add(event.stack[k]);
        }
        for (std::uint32_t i = 0; i < record.threads; ++i) {
            const ThreadEnd& end = record.threadEnds[i];
            for (std::size_t k = 0; k < end.frames; ++k) m_symbols.add(end.stack[k]);
        }
        m_symbols.add(record.otherPlace);
        m_symbols.resolve();
    }

    void tell() {
        tellSteps();
        tellEnds();
    }

private:
    template <typename Stack>
    std::vector<Frame> framesOf(const Stack& stack, std::size_t count) const {
        std::vector<Frame> all;
        for (std::size_t i = 0; i < count; ++i) {
            const std::vector<Frame>& frames = m_symbols.at(stack[i]);
            all.insert(all.end(), frames.begin(), frames.end());
        }
        return all;
    }

    // Objects are told apart by numbers, in the order in which they appear.
    std::size_t numberOf(std::uintptr_t object) {
        return m_numbers.emplace(object, m_numbers.size() + 1).first->second;
    }

    void tellEvent(const Event& event) {
        char what[96];
        if (event.object != 0) {
            (void)std::snprintf(what, sizeof(what), "%s #%zu", event.verb, numberOf(event.object));
        } else if (event.value != 0) {
            (void)std::snprintf(what, sizeof(what), "%s %" PRIu64, event.verb, event.value);
        } else {
            (void)std::snprintf(what, sizeof(what), "%s", event.verb);
        }
        const std::vector<Frame> frames = framesOf(event.stack, event.frames);
        (void)std::fprintf(m_out, "      %-36s", what);
        if (!frames.empty()) {
            (void)std::fprintf(m_out, " %s  %s", frames[0].place.c_str(),
                               frames[0].function.c_str());
        }
        (void)std::fputc('\n', m_out);
    }

    void tellSteps() {
        std::uint32_t begin = 0;
        while (begin < m_record.eventCount) {
            std::uint32_t end = begin + 1;
            while (end < m_record.eventCount && !m_record.events[end].isSwitch) ++end;
            tellTurn(begin, end);
            begin = end;
        }
    }

    void tellTurn(std::uint32_t begin, std::uint32_t end) {
        const Event& first = m_record.events[begin];
        (void)std::fprintf(m_out, "  %s (thread %d) runs, at %.6f s\n",
                           m_record.threadEnds[first.thread].name, first.thread,
                           static_cast<double>(first.nanoseconds) * 1e-9);
        const std::size_t count = end - begin;
        for (std::uint32_t i = begin; i < end; ++i) {
            const std::size_t index = i - begin;
            if (count > kFirstShown + kLastShown + 1 && index == kFirstShown) {
                const std::size_t left = count - kFirstShown - kLastShown;
                (void)std::fprintf(m_out, "      ... %zu more steps\n", left);
                i += static_cast<std::uint32_t>(left) - 1;
                continue;
            }
            tellEvent(m_record.events[i]);
        }
    }

    void tellEnds() {
        (void)std::fprintf(m_out, "  in the end\n");
        for (std::uint32_t i = 0; i < m_record.threads; ++i) {
            const ThreadEnd& end = m_record.threadEnds[i];
            if (end.isEnded) continue;
            (void)std::fprintf(m_out, "    %s (thread %u) ", end.name, i);
            if (end.waitsFor == nullptr) {
                (void)std::fputs(
                    static_cast<int>(i) == m_record.failingThread ? "is here" : "can run", m_out);
            } else {
                (void)std::fprintf(m_out, "waits for %s", end.waitsFor);
                if (end.object != 0) (void)std::fprintf(m_out, " #%zu", numberOf(end.object));
                if (end.owner >= 0) {
                    (void)std::fprintf(
                        m_out, ", of %s (thread %d)",
                        m_record.threadEnds[static_cast<std::size_t>(end.owner)].name, end.owner);
                }
            }
            (void)std::fputc('\n', m_out);
            tellStack(framesOf(end.stack, end.frames));
        }
        if (m_record.otherPlace == 0) return;
        (void)std::fprintf(m_out, "    the other one was thread %d\n", m_record.otherThread);
        tellStack(m_symbols.at(m_record.otherPlace));
    }

    void tellStack(const std::vector<Frame>& frames) {
        constexpr std::size_t kMost = 6;
        for (std::size_t i = 0; i < frames.size() && i < kMost; ++i) {
            (void)std::fprintf(m_out, "        at %s  %s\n", frames[i].place.c_str(),
                               frames[i].function.c_str());
        }
    }

    const RunRecord& m_record;
    FILE* const m_out;
    Symbols m_symbols;
    std::map<std::uintptr_t, std::size_t> m_numbers;
};

}  // namespace

void tellStory(const RunRecord& record, FILE* p_out) {
    Story(record, p_out).tell();
}

}  // namespace tevalon::testkit
