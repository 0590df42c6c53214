#include "singleton/parts.h"

void* sharedServiceOfPartTwo() {
    return parts::SharedService::GetInstance();
}

void* partsServiceOfPartTwo() {
    return parts::PartsService::GetInstance();
}
