#pragma once

#include <QString>

#include <optional>

namespace quorval {

// The per-user store of options: QSettings of organization and application "Quorval", every
// value a text under the option's label. Read afresh on every call, so a value written by any
// path (options file, preset, another thread) is seen at once. Callable from any thread.
namespace OptionStore {

// The stored text under key, or nothing when the key is absent.
std::optional<QString> text(const QString &key);

void setText(const QString &key, const QString &text);

void remove(const QString &key);

// Whether values set now can be kept: the store's file (named in fileName) can be written or
// made. A value set in a store that cannot be saved is lost at once, even for this run.
bool isWritable(QString &fileName);

// Points the store at folder, in every scope and format, for the rest of the run: the user's own
// is then neither read nor written (tools starting from the defaults, tests, benchmarks). Call
// from the main thread before the first read.
void usePrivateStore(const QString &folder);

} // namespace OptionStore

} // namespace quorval
