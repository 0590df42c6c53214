// formats.cpp: log statements of a client, in one of which the format does not fit where
// CONSUMER_WRONG_FORMAT is defined. It is compiled only.

#include "base/logging.h"

void logLaunch(const char* application, int attempts) {
    BLOG(tevalon::base::kLogError, "Launching '%s', attempt %d.\n", application, attempts);
    BLOG(tevalon::base::kLogError, "Launched.\n");
    BLOG(tevalon::base::kLogError, "");
#ifdef CONSUMER_WRONG_FORMAT
    BLOG(tevalon::base::kLogError, "%s\n", attempts);
#endif
}
