#pragma once

#include <QByteArray>

namespace quorval {

// What the audio library does not pass on from the sound server (PulseAudio, or PipeWire's
// PulseAudio service): its default source. Qt 6.4 marks no input as the default, so a choice
// made with the desktop's sound settings or `pactl set-default-source` would be ignored.
// libpulse is the library Qt's own audio backend talks to the server through, so asking it adds
// nothing a machine with Quorval does not already have. Any thread.
namespace PulseServer {

// The name of the server's default source (the id Qt gives that input), asked of the server now
// (a few milliseconds); empty when no server answers within a second.
QByteArray defaultSourceName();

} // namespace PulseServer

} // namespace quorval
