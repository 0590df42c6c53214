// cancellation_points.h: cancels a thread at the one of its cancellation points that is asked for.
//
// The program defines the C library's cancellation points, as far as the library calls them, and
// the platform's debug output, which may be one. A point counts where the thread could be
// cancelled: while it has disabled that, its calls are passed on.

#ifndef TESTS_ENDS_CANCELLATION_POINTS_H
#define TESTS_ENDS_CANCELLATION_POINTS_H

#include <cstddef>

namespace ends {

/// From now on the calling thread is cancelled at its @p number-th point, counted from 1.
void cancelThisThreadAt(int number);

/// No further point of the calling thread counts.
void cancelThisThreadNoMore();

/// Whether such a thread has waited for a condition, or was just about to.
bool hasWaited();

/// The call at which a thread was cancelled; empty where none was.
const char* cancelledAt();

/// Has cancelledAt() kept in memory that outlives the process: kCallBytes of zeros.
inline constexpr std::size_t kCallBytes = 40;
void keepCallIn(char* p_text);

}  // namespace ends

#endif  // TESTS_ENDS_CANCELLATION_POINTS_H
