#pragma once

#include "audio/AudioThread.h"

#include <atomic>
#include <memory>

class QAudioSink;

namespace quorval {

class SineSource;

// A soft sine to tune against, through the default output: it fades in on start() and out on
// stop() (no clicks), and a new frequency takes over at the next buffer without a jump in
// phase. The output lives on a thread of its own; every method may be called from any one
// other thread at a time.
class ReferenceTone
{
public:
    // Peak level, of full scale: soft beside an instrument.
    static constexpr double kAmplitude = 0.25;
    static constexpr double kSampleRate = 44100.0;
    static constexpr double kFadeSeconds = 0.03;

    // Nothing when there is no output.
    static std::unique_ptr<ReferenceTone> make();
    ~ReferenceTone();
    ReferenceTone(const ReferenceTone &) = delete;
    ReferenceTone &operator=(const ReferenceTone &) = delete;

    void start(double frequencyHz);
    void setFrequency(double frequencyHz);
    // Fades out; the output stops once the fade has been heard.
    void stop();
    [[nodiscard]] bool isSounding() const;
    [[nodiscard]] double frequency() const;

private:
    ReferenceTone();

    AudioThread audio{"quorval-tone"};
    QAudioSink *sink = nullptr;   // audio thread
    SineSource *source = nullptr; // audio thread (read by the sink)
};

} // namespace quorval
