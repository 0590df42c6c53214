#include "bare_call.h"

int bareCall(const void*) {
    return 0;
}
