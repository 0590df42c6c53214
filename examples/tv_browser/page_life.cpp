#include "page_life.h"

#include <utility>

#include "base/synchronization/auto_lock.h"

namespace tv_browser {
namespace {

using tevalon::base::AutoLock;
using tevalon::base::simple_timer::Timer;

constexpr tevalon::base::simple_timer::TimeoutTime kHeartbeat = {0, 250, 0};
constexpr int kPollMs = 40;

}  // namespace

PageLife::PageLife(Note note)
    : m_note(std::move(note)),
      m_heartbeat(
          "heartbeat", kHeartbeat, [](Timer*, void*) {}, nullptr,
          tevalon::base::simple_timer::CONTINUE),
      m_poller(m_note) {
    m_poller.pause();
    m_pollerThread = std::thread([this] { (void)m_poller.run(); });
}

PageLife::~PageLife() {
    m_poller.stop();
    m_pollerThread.join();
}

void PageLife::begin(const std::string& title) {
    end();
    (void)m_heartbeat.changeHandler(
        [this, title](Timer*, void*) { m_note("\"" + title + "\" is alive"); }, nullptr);
    (void)m_heartbeat.start();  // A page without a heartbeat is shown all the same.
    m_poller.beginFor(title);
    m_poller.resume();
}

void PageLife::end() {
    m_poller.pause();
    (void)m_heartbeat.stop();
}

PageLife::Poller::Poller(const Note& note) : Runnable(kPollMs), m_note(note) {}

void PageLife::Poller::execute() {
    const std::string title = takeNews();
    if (!title.empty()) m_note("\"" + title + "\" polls its server");
}

void PageLife::Poller::beginFor(const std::string& title) {
    const AutoLock lock(m_titleMutex);
    m_newTitle = title;
}

std::string PageLife::Poller::takeNews() {
    const AutoLock lock(m_titleMutex);
    return std::exchange(m_newTitle, std::string());
}

}  // namespace tv_browser
