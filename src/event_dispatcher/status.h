// status.h: what the operations of hubs and dispatcher return.

#ifndef SRC_EVENT_DISPATCHER_STATUS_H
#define SRC_EVENT_DISPATCHER_STATUS_H

#include <cstdint>

namespace tevalon::base::event_dispatcher {

inline constexpr std::int32_t kOk = 0;
inline constexpr std::int32_t kFailed = -1;
inline constexpr std::int32_t kExists = 1;
inline constexpr std::int32_t kNullArgument = 2;

}  // namespace tevalon::base::event_dispatcher

#endif  // SRC_EVENT_DISPATCHER_STATUS_H
