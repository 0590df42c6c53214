// abnormal_end.h: what is done before the process ends by abort().

#ifndef TESTKIT_KIT_ABNORMAL_END_H
#define TESTKIT_KIT_ABNORMAL_END_H

namespace tevalon::testkit::kit {

/// Has @p task called before each abort() and each failed assert() from here on. Those that the C
/// library makes of its own accord do not count.
void callBeforeAbort(void (*task)());

}  // namespace tevalon::testkit::kit

#endif  // TESTKIT_KIT_ABNORMAL_END_H
