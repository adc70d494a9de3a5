#pragma once

#include "display/PlaybackState.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>

class QTimer;

namespace quorval {

class MusicStream;
class ReferenceTone;

// The reference tone while its button is down or t is held: the grid note nearest the pitch at
// the needle (else the last pitch heard, else the tonic above middle C) in the key,
// temperament, tuning and "A Frequency" in force, following the needle every 100 ms.
// Main thread only.
class ToneControl : public QObject
{
    Q_OBJECT

public:
    // sound: the sound shown, or null; playback: where the needle is; say: a short word for the
    // user (no output to sound on).
    ToneControl(std::function<std::shared_ptr<MusicStream>()> sound,
                std::shared_ptr<const PlaybackState> playback,
                std::function<void(const QString &)> say, QObject *parent = nullptr);
    ~ToneControl() override;

    void start();
    void stop();
    [[nodiscard]] bool sounding() const;
    // The note to sound now, in Hz.
    [[nodiscard]] double frequency();

private:
    std::function<std::shared_ptr<MusicStream>()> sound;
    std::shared_ptr<const PlaybackState> playback;
    std::function<void(const QString &)> say;
    std::unique_ptr<ReferenceTone> tone;
    QTimer *follow;
    double lastPitch = -1.0; // the last pitch found at the needle
};

} // namespace quorval
