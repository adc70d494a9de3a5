#pragma once

#include <QString>

#include <functional>
#include <optional>

namespace quorval {

// What the options dialog and the Options menu need from the main window, handed in when they
// are made. Messages ("Help not available", "Can't import options", "Can't write options
// file: ...") do not pass here: they go through showMessage (options/Messages.h), whose handler
// the window installs with its message dialog. Tests fill these with functions that answer at
// once. A member left empty falls back as its comment says. Called on the main thread.
struct OptionsHost
{
    // Opens the help viewer at topic ("ScaleTab", "ViewTab", "ProcessTab", "AudioTab",
    // "FilesTab"); returns false when it has no page for it, and the dialog then says "Help not
    // available". Empty: help is never available.
    std::function<bool(const QString &topic)> openHelp;
    // Asks for an options file (".plist") to read, starting in folder (empty: where the panel
    // likes); nothing when cancelled. Empty: a file dialog.
    std::function<std::optional<QString>(const QString &folder)> chooseFileToRead;
    // Asks where to write the options file; nothing when cancelled. Empty: a file dialog that
    // may create folders and adds ".plist" to a bare name.
    std::function<std::optional<QString>()> chooseFileToWrite;
};

} // namespace quorval
