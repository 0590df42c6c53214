// hub_registration.h: a hub that is registered with the dispatcher for a scope.

#ifndef BASE_EVENT_DISPATCHER_HUB_REGISTRATION_H
#define BASE_EVENT_DISPATCHER_HUB_REGISTRATION_H

#include <cstdint>
#include <utility>

#include "base/event_dispatcher/event_dispatcher.h"
#include "base/event_dispatcher/event_hub.h"

namespace tevalon::base::event_dispatcher {

/// Registers a hub, and unregisters it at the end of its scope, which stops the hub's thread. As a
/// member it stands behind the hub, and behind whatever the hub's handlers use: those have returned
/// when it is gone.
///
///     EventHub m_hub{kMyModule};
///     HubRegistration m_registration{&m_hub};
///
/// A hub that was registered already stays so: who has registered it unregisters it.
///
/// Thread-safety: one thread at a time.
class [[nodiscard]] HubRegistration {
public:
    /// Registers @p p_hub, which outlives this; see status().
    explicit HubRegistration(EventHub* p_hub)
        : m_status(evtdispch_register_hub(p_hub)), m_hub(m_status == 0 ? p_hub : nullptr) {}

    /// The hub is registered for this one from now on.
    HubRegistration(HubRegistration&& other) noexcept
        : m_status(other.m_status), m_hub(std::exchange(other.m_hub, nullptr)) {}
    /// Unregisters what it had, if anything.
    HubRegistration& operator=(HubRegistration&& other) noexcept {
        if (this == &other) return *this;
        reset();
        m_status = other.m_status;
        m_hub = std::exchange(other.m_hub, nullptr);
        return *this;
    }

    ~HubRegistration() { reset(); }

    /// What evtdispch_register_hub() has returned.
    std::int32_t status() const { return m_status; }

    /// Unregisters the hub before the scope ends, if this has registered it.
    void reset() {
        EventHub* const p_hub = std::exchange(m_hub, nullptr);
        if (p_hub != nullptr) (void)evtdispch_unregister_hub(p_hub);
    }

private:
    std::int32_t m_status;
    EventHub* m_hub;  // Null where there is nothing to unregister.
};

}  // namespace tevalon::base::event_dispatcher

#endif  // BASE_EVENT_DISPATCHER_HUB_REGISTRATION_H
