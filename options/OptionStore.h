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

} // namespace OptionStore

} // namespace quorval
