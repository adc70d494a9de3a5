#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace quorval {

class Parameters;

// Options files: the dialog options written to and read from XML property lists, the factory
// options, and the preferences of the earlier edition. Failures reach the user through
// showMessage with the texts below. Main thread only (the panels that choose the files belong
// to the window).
namespace OptionsFile {

// Where the factory options live among the resources.
inline const QString kDefaultPrefsPath = QStringLiteral(":/DefaultPrefs.plist");
// The earlier edition's preferences file, looked for in the configuration folders.
inline const QString kEarlierPreferencesName = QStringLiteral("Quorval.plist");

// Writes every dialog option to path. A regular file is replaced only once the new one is
// complete; a FIFO or a device is written through; a folder is refused. On failure shows
// "Can't write options file: " and the reason; returns false.
bool writeOptions(const Parameters &parameters, const QString &path);

// Imports the property list at path. When it cannot be read or its root is not a dictionary,
// shows "Can't import options: " and why, changes nothing and returns false. Entries the options
// refuse are left out and listed in one message titled "Options refused" (label, value, why).
bool readOptions(Parameters &parameters, const QString &path);

// The options file that goes with the sound at soundPath: beside it, named like it with
// ".plist" in place of its extension (demo.wav: demo.plist).
QString companionPath(const QString &soundPath);

// Takes the scale's options (Key, Minor, Temperament, Transposition, A Frequency) from the
// sound's companion options file, when there is one; its other entries are passed over. Answers
// what it set, "Key D major from demo.plist", or nothing when there is no such file or it cannot
// be read: then "Can't take the key from ...: " and why are shown and nothing changes. Entries
// refused are shown as readOptions shows them.
std::optional<QString> takeCompanionScale(Parameters &parameters, const QString &soundPath);

// Imports the factory options; "Can't import default options: " and why when they are missing
// or unreadable.
bool defaultOptions(Parameters &parameters, const QString &path = kDefaultPrefsPath);

// The folders searched for the earlier edition's preferences, in order: the system-wide
// configuration folders (XDG_CONFIG_DIRS), then the user's (XDG_CONFIG_HOME).
QStringList earlierPreferencesFolders();

// Imports the first earlier preferences file found in folders, once per user: after an import
// the store remembers it and later launches do nothing. Shows "Imported" after an import and
// returns whether one happened. An unreadable file is passed over in silence.
bool importEarlierPreferences(Parameters &parameters,
                              const QStringList &folders = earlierPreferencesFolders());

} // namespace OptionsFile

} // namespace quorval
