// sample.cpp: what mutants_test.py makes mutants of, and a program with a test of it.

#include <cerrno>
#include <memory>
#include <mutex>

#define TWICE(x) ((x) + (x))
#define SAY(text, value) \
    do {                 \
        (void)(text);    \
        (void)(value);   \
    } while (false)

namespace {

std::mutex g_mutex;
int g_sum = 0;

constexpr int folded(int a) {
    return a + 1;
}

struct Length {
    int cm = 0;
    friend bool operator<(const Length& a, const Length& b) { return a.cm < b.cm; }
};

int added(int a, int b) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_sum = a + b;
    // Not a place for 1 + 1.
    SAY("1 + 1", TWICE(a + 1));
    return g_sum;
}

bool isShorter(const Length& a, const Length& b) {
    return a < b;
}

int counted(int limit) {
    int found = 0;
    char buffer[folded(3)] = {};
    for (int i = 0; i < limit; ++i) {
        if (i == EINVAL || !(i % 2))
            continue;
        else
            found += 2;
    }
    return limit > 0 &&  // What is behind a comment belongs to another line.
                   buffer[0] == 0
               ? found
               : -1;
}

int neverCalled(int a) {
    while (a > 0) --a;
    return a;
}

}  // namespace

int main(int argc, char**) {
    if (argc > 5) return neverCalled(argc);
    const bool isGood = added(2, 3) == 5 && counted(6) == 6 && counted(0) == -1 &&
                        isShorter({1}, {2}) && !isShorter({2}, {2});
    return isGood ? 0 : 1;
}
