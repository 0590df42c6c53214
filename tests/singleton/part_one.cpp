#include "singleton/parts.h"

void* sharedServiceOfPartOne() {
    return parts::SharedService::GetInstance();
}

void* partsServiceOfPartOne() {
    return parts::PartsService::GetInstance();
}
