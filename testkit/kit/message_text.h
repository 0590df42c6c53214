// message_text.h: whether a line is one of a message's.

#ifndef TESTKIT_KIT_MESSAGE_TEXT_H
#define TESTKIT_KIT_MESSAGE_TEXT_H

#include <optional>
#include <string>
#include <vector>

#include "testkit/log_messages.h"

namespace tevalon::testkit::kit {

/// The values that @p text has for the conversions of @p message's format; none where it is no line
/// of it.
std::optional<std::vector<std::string>> valuesOf(const LogMessage& message,
                                                 const std::string& text);

}  // namespace tevalon::testkit::kit

#endif  // TESTKIT_KIT_MESSAGE_TEXT_H
