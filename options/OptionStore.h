#pragma once

#include <QObject>
#include <QString>

#include <optional>

namespace quorval {

// Tells of changed values in the option store: one signal per real change, on the main thread
// (the application object's), whichever thread set the value.
class OptionChanges : public QObject
{
    Q_OBJECT

signals:
    // The text stored under key was set, replaced or removed.
    void changed(const QString &key);
};

// The per-user store of options: QSettings of organization and application "Quorval", every
// value a text under the option's label.
//
// The values are read from the file once, at the first access, and kept in memory; a value set
// is written to the file at once as well. Reads never touch the file system, which drawing and
// analysis do thousands of times a second. A change another process makes to the file (a hand
// edit, `quorval-cli --use-settings --set` while the window runs) is seen at the next start:
// re-reading would cost a file check per read, and such a change would not have been followed
// up (no recompute, no recolour, no dialog refresh) even when it was read. Writing merges into
// the file as it is then, so values another process set under other keys are kept. A second
// launch hands its files over before it reads any option.
//
// Callable from any thread.
namespace OptionStore {

// The stored text under key, or nothing when the key is absent.
std::optional<QString> text(const QString &key);

// Stores text under key and writes it through to the file; returns whether the stored text
// changed (only then is a change signalled).
bool setText(const QString &key, const QString &text);

// Removes the key; returns whether there was one (only then is a change signalled).
bool remove(const QString &key);

// Whether values set now can be kept: the store's file (named in fileName) can be written or
// made. A value set in a store that cannot be saved is kept for this run only.
bool isWritable(QString &fileName);

// Points the store at folder, in every scope and format, for the rest of the run: the user's own
// is then neither read nor written (tools starting from the defaults, tests, benchmarks). What
// was read before is forgotten. Call from the main thread before other threads use options.
void usePrivateStore(const QString &folder);

// Forgets what was read, so the next access reads the file again; no change is signalled. For
// tests that change the file behind the store's back.
void reload();

// The object whose signal tells of every change; made on first use, never destroyed.
OptionChanges &changes();

} // namespace OptionStore

} // namespace quorval
