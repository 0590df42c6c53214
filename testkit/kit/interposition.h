// interposition.h: how the kit's definitions of the system's functions are made.
//
// A program that is linked with the kit defines them under their own names, for itself and for the
// shared libraries that it uses. Each goes on to the next definition, a sanitizer's or the
// system's, where the kit has nothing to do.

#ifndef TESTKIT_KIT_INTERPOSITION_H
#define TESTKIT_KIT_INTERPOSITION_H

#include <cerrno>
#include <cstddef>

#include "failures.h"

namespace tevalon::testkit::kit {

/// The definition behind the program's own.
void* next(void** pp_known, const char* name);

/// The C library's own definition. Sanitizers take no notice of its use, so it may be called for
/// another thread, and by one that has ended for them.
void* definitionOfTheSystem(const char* name);

/// Does nothing but have the linker take the definitions out of the archive.
void linkInterposers();

// How a failure shows in the result.
struct ErrorNumber {
    static int failed(int error) { return error; }
};
struct MinusOne {
    static int failed(int error) {
        errno = error;
        return error == 0 ? 0 : -1;
    }
};
struct Null {
    static std::nullptr_t failed(int error) {
        errno = error;
        return nullptr;
    }
};

}  // namespace tevalon::testkit::kit

// Declares nextNAME(): what NAME calls where the kit has nothing to do. Where a sanitizer's runtime
// is linked into the program, its definition gives way to ours and has this second name.
#define TEVALON_KIT_NEXT(NAME, RESULT, PARAMETERS)                                            \
    extern "C" RESULT tevalonKitInterceptor_##NAME PARAMETERS __asm__("__interceptor_" #NAME) \
        __attribute__((weak));                                                                \
    [[maybe_unused]] static auto next_##NAME() {                                              \
        static void* s_known;                                                                 \
        if (tevalonKitInterceptor_##NAME != nullptr) return &tevalonKitInterceptor_##NAME;    \
        return reinterpret_cast<RESULT(*) PARAMETERS>(                                        \
            ::tevalon::testkit::kit::next(&s_known, #NAME));                                  \
    }

// Begins the definition of NAME for the whole process, by another name in the source, lest it
// disagree with the attributes that the system's headers give to theirs.
#define TEVALON_KIT_DEFINE(NAME, RESULT, PARAMETERS)               \
    TEVALON_KIT_NEXT(NAME, RESULT, PARAMETERS)                     \
    extern "C" RESULT tevalonKit_##NAME PARAMETERS __asm__(#NAME); \
    extern "C" __attribute__((visibility("default"))) RESULT tevalonKit_##NAME PARAMETERS

// Returns from a definition where the use is to fail.
#define TEVALON_KIT_FAIL(CALL, STYLE)                                                         \
    do {                                                                                      \
        const int error = ::tevalon::testkit::kit::failureOf(::tevalon::testkit::Call::CALL); \
        if (error != ::tevalon::testkit::kit::kNoFailure) {                                   \
            return ::tevalon::testkit::kit::STYLE::failed(error);                             \
        }                                                                                     \
    } while (false)

// A function that can fail, and does nothing else here.
#define TEVALON_KIT_CAN_FAIL(CALL, STYLE, NAME, RESULT, PARAMETERS, ARGUMENTS) \
    TEVALON_KIT_DEFINE(NAME, RESULT, PARAMETERS) {                             \
        TEVALON_KIT_FAIL(CALL, STYLE);                                         \
        return next_##NAME() ARGUMENTS;                                        \
    }

#endif  // TESTKIT_KIT_INTERPOSITION_H
