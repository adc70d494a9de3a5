#pragma once

#include <QString>
#include <QTemporaryDir>

namespace quorval {

// Fresh folders, for this object's life, in place of those a tool, test or benchmark would
// otherwise share with the user and with other runs: the per-user and system-wide configuration
// (XDG_CONFIG_HOME, XDG_CONFIG_DIRS) and the working files (TMPDIR: a start-up offers the
// recordings other processes left there). Make it before the application object, so nothing
// has asked for a standard path yet. Main thread.
class PrivateFolders
{
public:
    PrivateFolders();
    PrivateFolders(const PrivateFolders &) = delete;
    PrivateFolders &operator=(const PrivateFolders &) = delete;

    // Whether the folders were made and the environment points at them.
    [[nodiscard]] bool isValid() const { return valid; }
    // The folder that holds them all.
    [[nodiscard]] QString root() const { return folder.path(); }
    // The per-user and the system-wide configuration folders.
    [[nodiscard]] QString user() const;
    [[nodiscard]] QString system() const;

private:
    QTemporaryDir folder;
    bool valid = false;
};

} // namespace quorval
