// session_player.h: does what a session orders.

#ifndef TV_BROWSER_SESSION_PLAYER_H
#define TV_BROWSER_SESSION_PLAYER_H

#include "module.h"
#include "session_command.h"

namespace tv_browser {

/// Speaks for the people outside the set: the viewer, who tunes, presses keys, shows and
/// hides; the broadcaster, who signals applications to start and stop; and the session, who
/// sets the stage for both.
///
/// Belongs to one thread.
class SessionPlayer {
public:
    /// @param timeline  Must outlive the player.
    explicit SessionPlayer(Timeline& timeline);

    /// Has reports of the system, which are many lines long, told on the timeline in one. From
    /// then on; for a timeline that the reports themselves do not stand in.
    void summariseReports() { m_summarisesReports = true; }

    /// Blocks until @p command is done.
    void play(const Command& command);

    /// Whether the session has quit.
    bool finished() const { return m_finished; }

    /// Has every module finish what it does, in the order in which they can be stopped.
    void prepareTurnOff();

private:
    void perform(const command::Tune& tune);
    void perform(const command::Key& key);
    void perform(const command::Launch& launch);
    void perform(const command::Show& show);
    void perform(const command::Hide& hide);
    void perform(const command::Stop& stop);
    void perform(const command::Slow& slow);
    void perform(const command::Call& call);
    void perform(const command::Misdial& misdial);
    void perform(const command::Remind& remind);
    void perform(const command::Silence& silence);
    void perform(const command::Hoard& hoard);
    void perform(const command::Say& say);
    void perform(const command::Wait& wait);
    void perform(const command::Memory& memory);
    void perform(const command::State& state);
    void perform(const command::Quit& quit);

    Timeline& m_timeline;
    // None of them is ever started: they have no mailbox.
    Module m_session;
    Module m_viewer;
    Module m_broadcaster;
    bool m_finished = false;
    bool m_summarisesReports = false;
};

}  // namespace tv_browser

#endif  // TV_BROWSER_SESSION_PLAYER_H
