#pragma once

#include "options/Messages.h"

#include <QString>

#include <sndfile.h>

#include <cmath>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace quorval::test {

// Writes interleaved float frames (full scale ±1) through libsndfile; false when the format
// cannot be written here. title, when given, puts a LIST chunk into a WAV file.
inline bool writeSoundFile(const std::string &path, int format, int channels, int sampleRate,
                           const std::vector<float> &interleaved, const char *title = nullptr)
{
    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = channels;
    info.format = format;
    if (!sf_format_check(&info))
        return false;
    SNDFILE *file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file)
        return false;
    if (title)
        sf_set_string(file, SF_STR_TITLE, title);
    const sf_count_t frames = static_cast<sf_count_t>(interleaved.size()) / channels;
    const bool ok = sf_writef_float(file, interleaved.data(), frames) == frames;
    sf_close(file);
    return ok;
}

// A sine of amplitude (full scale 1) on the left channel; the right one, if any, silent.
inline std::vector<float> leftSine(double freqHz, double amplitude, int frames, int channels,
                                   int sampleRate)
{
    std::vector<float> samples(static_cast<std::size_t>(frames * channels), 0.0f);
    for (int f = 0; f < frames; ++f)
        samples[static_cast<std::size_t>(f * channels)] =
            static_cast<float>(amplitude * std::sin(2.0 * M_PI * freqHz * f / sampleRate));
    return samples;
}

inline std::string fileBytes(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Collects the messages shown while it lives.
class MessageCatcher
{
public:
    MessageCatcher()
    {
        previous =
            setMessageHandler([this](const QString &, const QString &text, const QString &detail) {
                texts.push_back(text);
                details.push_back(detail);
            });
    }
    ~MessageCatcher() { setMessageHandler(previous); }
    MessageCatcher(const MessageCatcher &) = delete;
    MessageCatcher &operator=(const MessageCatcher &) = delete;

    std::vector<QString> texts;
    std::vector<QString> details;

private:
    MessageHandler previous;
};

} // namespace quorval::test
