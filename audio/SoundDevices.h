#pragma once

#include <QAudioDevice>
#include <QString>
#include <QStringList>

#include <optional>

namespace quorval {

// The sound server's devices as the recorder and the player pick them. Main thread or the
// audio thread (the device list is Qt's).
namespace SoundDevices {

// The default input, chosen by id: the server's default source as the server says now (a
// change made while Quorval runs included), else the one named by PULSE_SOURCE, else the first
// the server lists. Nothing when it lists no input.
std::optional<QAudioDevice> defaultInput();

// The default output, or nothing when the server lists none.
std::optional<QAudioDevice> defaultOutput();

// Waits (at most a second) until the device lists stop changing: the server's devices reach
// the audio library a little after it starts. Main thread (or a tool's).
void waitForDeviceLists();

// The inputs and the outputs the server lists, by description, in its order.
QStringList inputNames();
QStringList outputNames();

// The input named `wanted` (its description, else its id); "Default" or an empty name is the
// default input. An input not listed gives the default, and `fallback` (when given) a sentence
// saying so; nothing when no input is listed at all.
std::optional<QAudioDevice> chosenInput(const QString &wanted, QString *fallback = nullptr);

// True when a sound server's socket exists but this user may not use it: the server is there
// and refuses access, which is what the permission message is for.
bool serverRefusesAccess();

// Why recording cannot start, in the system's words, when no input can be had; empty when an
// input exists.
QString inputProblem();

} // namespace SoundDevices

} // namespace quorval
