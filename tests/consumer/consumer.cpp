// consumer.cpp: a client that has nothing but the installed package: two modules exchange an
// event, a timer fires, a digest is computed, and what happened is logged.

#define BLOG_TAG "CONSUMER"

#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include "base/event_dispatcher.h"
#include "base/logging.h"
#include "base/simple_timer.h"
#include "base/utils.h"
#include "zor_debug/zor_debug.h"

namespace {

using namespace tevalon::base;

constexpr int kRemote = 1;
constexpr int kTuner = 2;
constexpr int kTune = 100;

std::int32_t askTuner() {
    event_dispatcher::EventHub remote(kRemote);
    event_dispatcher::EventHub tuner(kTuner);
    tuner.registerHandler(kTune, [](std::shared_ptr<event_dispatcher::BrowserEvent> event) {
        event->replyResult(event->srcModule + 6);
    });
    event_dispatcher::evtdispch_register_hub(&tuner);
    const std::int32_t reply = remote.sendEventSync(remote.createEvent(kTune), kTuner, -1);
    event_dispatcher::evtdispch_unregister_hub(&tuner);
    return reply;
}

std::string waitForTimer() {
    std::mutex mutex;
    std::condition_variable fired;
    std::string name;
    const auto handler = [&](simple_timer::Timer* p_timer, void*) {
        std::lock_guard<std::mutex> lock(mutex);
        name = p_timer->name();
        fired.notify_one();
    };
    simple_timer::Timer timer("launch", {0, 1, 0}, handler, nullptr, simple_timer::ONCE);
    timer.start();
    std::unique_lock<std::mutex> lock(mutex);
    fired.wait(lock, [&] { return !name.empty(); });
    return name;
}

}  // namespace

int main() {
    std::printf("reply %d\n", askTuner());
    std::printf("timer %s\n", waitForTimer().c_str());
    std::printf("md5 %s\n", utils::MD5("tevalon").hexDigest().c_str());
    BLOG_AT(BLOG_TAG, kLogError, __FILE__, 0, __func__, "Logged %d line.\n", 1);
    zorDebugOutput0("Written %s.\n", "directly");
    return 0;
}
