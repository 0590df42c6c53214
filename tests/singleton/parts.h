// parts.h: the singletons that the executables and the two shared objects share.

#ifndef TESTS_SINGLETON_PARTS_H
#define TESTS_SINGLETON_PARTS_H

#include "base/export.h"
#include "base/singleton.h"

namespace parts {

/// Made by the executables and by both shared objects.
class TEVALON_BASE_EXPORT SharedService {
public:
    static SharedService* GetInstance() {
        using Base = tevalon::base::Singleton<
            SharedService, tevalon::base::DefaultSingletonTraits<SharedService>, SharedService>;
        return Base::GetInstance();
    }
};

/// Made by the shared objects alone.
class TEVALON_BASE_EXPORT PartsService {
public:
    static PartsService* GetInstance() {
        using Base = tevalon::base::Singleton<
            PartsService, tevalon::base::DefaultSingletonTraits<PartsService>, PartsService>;
        return Base::GetInstance();
    }
};

}  // namespace parts

extern "C" {
TEVALON_BASE_EXPORT void* sharedServiceOfPartOne();
TEVALON_BASE_EXPORT void* sharedServiceOfPartTwo();
TEVALON_BASE_EXPORT void* partsServiceOfPartOne();
TEVALON_BASE_EXPORT void* partsServiceOfPartTwo();
}

#endif  // TESTS_SINGLETON_PARTS_H
