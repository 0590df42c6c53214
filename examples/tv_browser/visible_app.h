// visible_app.h: which application is visible, as far as the application manager has told.

#ifndef TV_BROWSER_VISIBLE_APP_H
#define TV_BROWSER_VISIBLE_APP_H

#include <string>

#include "events.h"

namespace tv_browser {

/// For modules that follow the application manager's notices instead of asking each time.
class VisibleApp {
public:
    void follow(const AppNotice& notice) {
        if (notice.state == AppState::Visible) {
            m_name = notice.app;
        } else if (notice.app == m_name) {
            m_name.clear();
        }
    }

    bool none() const { return m_name.empty(); }
    const std::string& name() const { return m_name; }  ///< Empty when there is none.

private:
    std::string m_name;
};

}  // namespace tv_browser

#endif  // TV_BROWSER_VISIBLE_APP_H
