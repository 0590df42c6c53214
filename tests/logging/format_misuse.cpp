// Compiles as it stands; each macro adds a log statement whose format does not fit.

#include "base/logging.h"

void formatMisuse(const char* text) {
    BLOG(tevalon::base::kLogError, "%s\n", text);
    print_browser_log(1, "tag", __FILE__, __LINE__, __func__, "%s", text);
#ifdef TEVALON_TEST_WRONG_ARGUMENT
    BLOG(tevalon::base::kLogError, "%d\n", text);
#endif
#ifdef TEVALON_TEST_MISSING_ARGUMENT
    BLOG(tevalon::base::kLogError, "%s %s\n", text);
#endif
#ifdef TEVALON_TEST_PRINT_LOG
    print_browser_log(1, "tag", __FILE__, __LINE__, __func__, "%d", text);
#endif
#ifdef TEVALON_TEST_PRINT_HBBTV_LOG
    print_hbbtv_controller_log(1, "tag", __FILE__, __LINE__, __func__, "%d", text);
#endif
}
