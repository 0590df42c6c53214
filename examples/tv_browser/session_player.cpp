#include "session_player.h"

#include <memory>
#include <thread>
#include <variant>

#include "base/logging.h"
#include "memory_summary.h"
#include "patience.h"
#include "process_state.h"
#include "session_settings.h"

// Replies are not looked at here: the timeline shows them, and a session goes on whatever
// they are.

namespace tv_browser {

SessionPlayer::SessionPlayer(Timeline& timeline)
    : m_timeline(timeline),
      m_session(ModuleId::Session, timeline),
      m_viewer(ModuleId::Viewer, timeline),
      m_broadcaster(ModuleId::Broadcaster, timeline) {}

void SessionPlayer::play(const Command& command) {
    std::visit([this](const auto& known) { perform(known); }, command);
}

void SessionPlayer::prepareTurnOff() {
    for (const ModuleId module : {ModuleId::HbbtvController, ModuleId::OpAppHost,
                                  ModuleId::ApplicationManager, ModuleId::BrowserEngine}) {
        (void)m_session.ask(module,
                            std::make_unique<Message>(EventType::Standby, "finish, we turn off"),
                            kPatienceOfPeople);
    }
}

void SessionPlayer::perform(const command::Tune& tune) {
    (void)m_viewer.ask(ModuleId::HbbtvController, std::make_unique<TuneRequest>(tune.channel),
                       kPatienceOfPeople);
}

void SessionPlayer::perform(const command::Key& key) {
    if (isInputDisabled()) {
        m_viewer.note("presses " + key.name + ", but input is disabled");
        return;
    }
    (void)m_viewer.ask(ModuleId::HbbtvController,
                       std::make_unique<KeyRequest>(EventType::PressKey, key.name),
                       kPatienceOfPeople);
}

void SessionPlayer::perform(const command::Launch& launch) {
    (void)m_broadcaster.ask(
        ModuleId::HbbtvController,
        std::make_unique<PageRequest>(EventType::SignalStart, "start", launch.app, launch.page),
        kPatienceOfPeople);
}

void SessionPlayer::perform(const command::Show& show) {
    (void)m_viewer.ask(ModuleId::ApplicationManager,
                       std::make_unique<AppRequest>(EventType::ShowApp, "show", show.app),
                       kPatienceOfPeople);
}

void SessionPlayer::perform(const command::Hide& hide) {
    (void)m_viewer.ask(ModuleId::ApplicationManager,
                       std::make_unique<AppRequest>(EventType::HideApp, "hide", hide.app),
                       kPatienceOfPeople);
}

void SessionPlayer::perform(const command::Stop& stop) {
    (void)m_broadcaster.ask(ModuleId::HbbtvController,
                            std::make_unique<AppRequest>(EventType::SignalStop, "stop", stop.app),
                            kPatienceOfPeople);
}

void SessionPlayer::perform(const command::Slow& slow) {
    m_session.tell(slow.module,
                   std::make_unique<SlowNotice>(static_cast<std::int32_t>(slow.delay.count())));
}

void SessionPlayer::perform(const command::Call& call) {
    m_session.tell(call.module, std::make_unique<CallNotice>(call.other));
}

void SessionPlayer::perform(const command::Misdial& misdial) {
    m_session.tell(misdial.module,
                   std::make_unique<Message>(EventType::Misdial, "call somebody who is not there"));
}

void SessionPlayer::perform(const command::Remind& remind) {
    m_session.tell(remind.module,
                   std::make_unique<RemindNotice>(static_cast<std::int32_t>(remind.delay.count())));
}

void SessionPlayer::perform(const command::Silence& silence) {
    m_session.tell(silence.module,
                   std::make_unique<Message>(EventType::Silence, "stop the reminder"));
}

void SessionPlayer::perform(const command::Hoard& hoard) {
    constexpr std::int32_t kPayloads = 100;
    m_session.tell(hoard.module, std::make_unique<HoardNotice>(kPayloads));
}

void SessionPlayer::perform(const command::Say& say) {
    m_timeline.chapter(say.text);
}

void SessionPlayer::perform(const command::Wait& wait) {
    std::this_thread::sleep_for(wait.duration);
}

void SessionPlayer::perform(const command::Memory&) {
    (void)tevalon::base::debug::debug_init();  // Here the report was asked for in any case.
    tevalon::base::debug::debug_dump_system_memory_status();
    if (!m_summarisesReports) return;
    const char* p_report = tevalon::base::debug::g_webengine_memory_debug_info;
    const std::string summary = summariseMemory(p_report != nullptr ? p_report : "");
    if (!summary.empty()) m_session.note(summary);
}

void SessionPlayer::perform(const command::State&) {
    m_timeline.remark(stateOfProcess());
}

void SessionPlayer::perform(const command::Quit&) {
    m_finished = true;
}

}  // namespace tv_browser
