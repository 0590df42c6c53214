#include "scanner.h"

#include <utility>

#include "base/logging.h"

namespace scanner {

using namespace tevalon::base::event_dispatcher;
using tevalon::base::kLogWarn;
using tevalon::base::RelockableLock;

namespace {

// To itself, so that everything happens on the hub's thread.
constexpr std::int32_t kStart = 100;
constexpr std::int32_t kTimeIsOver = 101;

}  // namespace

Scanner::Scanner(Patience patience, Progress progress)
    : m_patience(patience), m_progress(std::move(progress)) {
    (void)m_hub.registerHandler(kStart, [this](const Event&) { tuneToNext(); });
    (void)m_hub.registerHandler(kServicesFound, [this](const Event& event) {
        if (const auto* const p_services = payload<Services>(event)) onServices(*p_services);
    });
    (void)m_hub.registerHandler(kTimeIsOver, [this](const Event& event) {
        if (const auto* const p_place = payload<std::size_t>(event)) onNoServices(*p_place);
    });
}

// As the tuner's. A request that is out is called back while the hub is unregistered, and must not
// be followed by one for the next frequency.
Scanner::~Scanner() {
    m_isStopping = true;
    m_registration.reset();
    m_thread.stop();
}

void Scanner::start(std::vector<int> frequenciesMhz) {
    m_frequenciesMhz = std::move(frequenciesMhz);
    (void)m_hub.sendEvent(m_hub.createEvent(kStart), kScanner);
}

bool Scanner::waitForEnd(std::chrono::milliseconds patience) {
    RelockableLock lock(m_mutex);
    return m_ended.wait_for(lock, patience,
                            [this]() TEVALON_REQUIRES(m_mutex) { return m_isEnded; });
}

void Scanner::tuneToNext() {
    if (m_isStopping) return;
    if (m_place == m_frequenciesMhz.size()) {
        end();
        return;
    }
    const auto request = makeRequest<Signal, Tune>(m_hub, kTune, m_frequenciesMhz[m_place]);
    const auto onReply = [this](EventResult result, const Event& event) { onTuned(result, event); };
    if (m_hub.sendAsync(request, kTuner, m_patience.forLock, onReply) != 0) {
        finishFrequency("there is no tuner");
    }
}

void Scanner::onTuned(EventResult result, const Event& request) {
    const auto* const p_signal = replyOf<Signal>(request);
    if (p_signal == nullptr) {
        BLOG(kLogWarn, "no answer for %d MHz: %d\n", m_frequenciesMhz[m_place], result);
        finishFrequency("the tuner does not answer");
    } else if (!p_signal->isLocked) {
        finishFrequency("nothing");
    } else {
        m_qualityPercent = p_signal->qualityPercent;
        m_waitsForServices = true;
        m_timeout = m_thread.post(
            [this, place = m_place] {
                (void)m_hub.sendEvent(makeEvent<std::size_t>(m_hub, kTimeIsOver, place), kScanner);
            },
            m_patience.forServices);
    }
}

void Scanner::onServices(const Services& services) {
    if (!m_waitsForServices || services.frequencyMhz != m_frequenciesMhz[m_place]) return;
    (void)m_timeout.cancel();
    (void)m_hub.sendEvent(makeEvent<Services>(m_hub, kAddServices, services), kChannelList);
    finishFrequency("services: " + std::to_string(services.services.size()) + ", quality " +
                    std::to_string(m_qualityPercent) + " %");
}

// It may have been on its way when the services came.
void Scanner::onNoServices(std::size_t place) {
    if (m_waitsForServices && place == m_place) finishFrequency("no services");
}

void Scanner::finishFrequency(const std::string& what) {
    m_progress(std::to_string(m_frequenciesMhz[m_place]) + " MHz: " + what);
    m_waitsForServices = false;
    ++m_place;
    tuneToNext();
}

void Scanner::end() {
    const RelockableLock lock(m_mutex);
    m_isEnded = true;
    m_ended.notify_all();
}

}  // namespace scanner
