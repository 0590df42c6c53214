// A program that has of the library what it uses, as with the static one, and no more: one thread
// that waits.

#include "activity/activity.h"

namespace activity = tevalon::base::activity;

extern "C" __attribute__((noinline)) void stateIsReady() {
    __asm__ volatile("" ::: "memory");
}

int main() {
    const activity::ListedActivity wait(activity::Kind::Stop, nullptr);
    stateIsReady();
    return 0;
}
