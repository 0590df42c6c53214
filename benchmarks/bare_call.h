// bare_call.h: a call into a shared library that returns 0: what a log statement that is off
// cannot cost less than.

#ifndef BENCHMARKS_BARE_CALL_H
#define BENCHMARKS_BARE_CALL_H

extern "C" __attribute__((visibility("default"))) int bareCall(const void* p_record);

#endif  // BENCHMARKS_BARE_CALL_H
