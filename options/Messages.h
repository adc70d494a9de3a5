#pragma once

#include <QString>

#include <functional>

namespace quorval {

// Receives every user-visible message: a title and a text shown to the user as they stand, and
// a detail (what it concerns and why; empty when there is none) shown beneath the text.
using MessageHandler =
    std::function<void(const QString &title, const QString &text, const QString &detail)>;

// Shows a message to the user through the installed handler; without one it is printed to
// stderr. Callable from any thread: the handler is called on the caller's thread, so a handler
// that opens a dialog must hand the message over to the main thread itself.
void showMessage(const QString &title, const QString &text, const QString &detail = {});

// Installs the handler that shows messages (the window's message dialog); an empty handler
// restores printing to stderr. Returns the handler it replaces, so tests can put it back.
MessageHandler setMessageHandler(MessageHandler handler);

// text in double quotes for a message, cut to its first maxChars characters and "…" when
// longer, so that a pasted page or a binary file's bytes cannot flood the screen.
QString quotedForMessage(const QString &text, qsizetype maxChars = 60);

} // namespace quorval
