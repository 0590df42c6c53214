// In each program and library that counts, before its other constructors: what they pass is counted
// in the file as well, instead of in counters that are then left behind.

void __llvm_profile_initialize(void);

__attribute__((constructor(101))) static void countFirst(void) {
    __llvm_profile_initialize();
}
