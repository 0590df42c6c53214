// interposition.h: how the process-wide definitions behind fault_injection.h are made.
//
// A source that includes it is built without sanitizers, and with the compiler's atomic operations
// instead of the standard library's: what it does between threads must not look like
// synchronisation to the thread sanitizer, or it would hide the races of the code under test.

#ifndef TESTS_SUPPORT_INTERPOSITION_H
#define TESTS_SUPPORT_INTERPOSITION_H

#include <cerrno>
#include <cstddef>

#include "support/fault_injection.h"

namespace test {

enum class Verdict { Pass, Fail, FailAfterwards, Replaced };

struct Decision {
    Verdict verdict = Verdict::Pass;
    int error = 0;
};

/// What becomes of a call from @p caller, its return address.
Decision decide(Call which, const void* caller, const void* object, void* p_result,
                void* const* pp_arguments);

/// To be told of what has been allocated.
void tellBlockWatcher(Call call, const void* p_block);

/// The definition behind the executable's: a sanitizer's or the library's own.
void* next(void** pp_known, const char* name);

// How a failure shows in the result.
struct ErrorNumber {
    static int failed(int error) { return error; }
};
struct MinusOneAndErrno {
    static int failed(int error) {
        errno = error;
        return -1;
    }
};
struct NullAndErrno {
    static std::nullptr_t failed(int error) {
        errno = error;
        return nullptr;
    }
};

/// One call on its way: decides what becomes of it.
template <typename Style, typename Result>
struct Passage {
    Call call;
    const void* caller;
    const void* object;

    template <typename Next, typename... Arguments>
    Result operator()(Next nextCall, Arguments... arguments) const {
        Result result{};
        void* const pointers[] = {static_cast<void*>(&arguments)..., nullptr};
        const Decision decision = decide(call, caller, object, &result, pointers);
        if (decision.verdict == Verdict::Replaced) return result;
        if (decision.verdict == Verdict::Fail) return Style::failed(decision.error);
        const Result real = nextCall(arguments...);
        return decision.verdict == Verdict::Pass ? real : Style::failed(decision.error);
    }
};

}  // namespace test

// Defines NAME for the whole process. The definition bears another name in the source, lest it
// disagree with the attributes that the system's headers give to theirs. ARGUMENTS begins with
// nextCall.
#define TEVALON_TEST_INTERPOSE(CALL, STYLE, NAME, RESULT, PARAMETERS, OBJECT, ARGUMENTS)     \
    extern "C" RESULT tevalonTest_##NAME PARAMETERS __asm__(#NAME);                          \
    extern "C" __attribute__((visibility("default"))) RESULT tevalonTest_##NAME PARAMETERS { \
        static void* s_next;                                                                 \
        const auto nextCall =                                                                \
            reinterpret_cast<RESULT(*) PARAMETERS>(::test::next(&s_next, #NAME));            \
        return ::test::Passage<::test::STYLE, RESULT>{                                       \
            ::test::Call::CALL, __builtin_return_address(0), OBJECT} ARGUMENTS;              \
    }

#endif  // TESTS_SUPPORT_INTERPOSITION_H
