#pragma once

#include <QString>
#include <QUrl>

#include <functional>

namespace quorval {

// What the update check needs from the main window, handed in when it is made. The window
// fills tell and ask with its message dialog; tests answer at once. A member left empty falls
// back as its comment says. Called on the main thread.
struct UpdateHost
{
    // Shows a message with an OK button. Empty: showMessage (options/Messages.h).
    std::function<void(const QString &title, const QString &text)> tell;
    // Asks a yes/no question; true for yes. Empty: the answer is no.
    std::function<bool(const QString &title, const QString &text)> ask;
    // Opens a web page in the user's browser; false when it could not. Empty:
    // QDesktopServices::openUrl.
    std::function<bool(const QUrl &url)> openUrl;
    // Ends the application (the window's own quit, which asks about unsaved sound). Empty:
    // QCoreApplication::quit.
    std::function<void()> quit;
};

} // namespace quorval
