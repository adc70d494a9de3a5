#pragma once

#include <QString>

#include <functional>

namespace quorval {

// Warnings from the analysis: it goes on, but the user should know (an option replaced by a
// value it can use, a file shorter than its header says, a file changed while it was read).
// The window shows them as a prompt it can dismiss; without a handler of their own they go to
// showMessage with the title "Warning" (quorval-cli prints them).
using WarningHandler = std::function<void(const QString &text)>;

// Any thread; the handler runs on the caller's thread.
void showWarning(const QString &text);
// Installs the warning handler; an empty one falls back to showMessage. Returns the previous.
WarningHandler setWarningHandler(WarningHandler handler);

} // namespace quorval
