#include <vector>

#include "base/event_dispatcher.h"
#include "base/singleton.h"
#include "base/utils.h"
#include "hot_paths/hot_path.h"

namespace bench {
namespace {

namespace utils = tevalon::base::utils;

struct Service {};

void getInstances(int count) {
    using Single = tevalon::base::Singleton<Service>;
    (void)Single::GetInstance();
    const Counted counted;
    for (int i = 0; i < count; ++i) (void)Single::GetInstance();
}

std::vector<unsigned char> sampleOf4KiB() {
    return std::vector<unsigned char>(4096, 0x5A);
}

void md5(int count) {
    const std::vector<unsigned char> bytes = sampleOf4KiB();
    const Counted counted;
    for (int i = 0; i < count; ++i) {
        utils::MD5 digest;
        digest.update(bytes.data(), 4096);
        (void)digest.finalize();
    }
}

void crc32(int count) {
    const std::vector<unsigned char> bytes = sampleOf4KiB();
    const Counted counted;
    for (int i = 0; i < count; ++i) (void)utils::CheckSum().crc_32(bytes.data(), 4096);
}

}  // namespace

void addUtilityPaths(HotPaths* p_paths) {
    constexpr int kCount = 100;
    constexpr int kDigests = 4;
    p_paths->push_back({"singletons/get_instance", kCount, getInstances});
    p_paths->push_back({"md5/4_KiB", kDigests, md5});
    p_paths->push_back({"crc32/4_KiB", kDigests, crc32});
}

}  // namespace bench
