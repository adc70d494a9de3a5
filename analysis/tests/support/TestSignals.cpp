#include "analysis/tests/support/TestSignals.h"

#include "analysis/WavFileOC.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <numbers>

namespace quorval::testsignals {

namespace {

// A small reproducible generator (xorshift32), the same on every platform.
class Random
{
public:
    explicit Random(std::uint32_t seed) : state(seed == 0 ? 0x9E3779B9u : seed) {}
    // Uniform in [0, 1).
    double next()
    {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return state / 4294967296.0;
    }

private:
    std::uint32_t state;
};

// Relative amplitude of harmonic k (1-based) in a timbre.
double partialAmplitude(Timbre timbre, int k)
{
    switch (timbre) {
    case Timbre::sine:
        return k == 1 ? 1.0 : 0.0;
    case Timbre::sawtooth:
        return 1.0 / k;
    case Timbre::clarinet:
        return k % 2 == 1 ? 1.0 / k : 0.1 / k;
    case Timbre::hollow:
        return k <= 4 ? std::pow(0.4, k - 1) : 0.0;
    case Timbre::weakFundamental:
        return k == 1 ? 0.05 : 1.0 / (k - 1);
    }
    return 0.0;
}

} // namespace

const std::vector<Timbre> &allTimbres()
{
    static const std::vector<Timbre> timbres = {Timbre::sine, Timbre::sawtooth, Timbre::clarinet,
                                                Timbre::hollow, Timbre::weakFundamental};
    return timbres;
}

const char *timbreName(Timbre timbre)
{
    switch (timbre) {
    case Timbre::sine:
        return "sine";
    case Timbre::sawtooth:
        return "sawtooth";
    case Timbre::clarinet:
        return "clarinet";
    case Timbre::hollow:
        return "hollow";
    case Timbre::weakFundamental:
        return "weakFundamental";
    }
    return "?";
}

double noteToHz(double note, double aHz)
{
    return aHz * std::exp2((note - 69.0) / 12.0);
}

double detuneHz(double freqHz, double cents)
{
    return freqHz * std::exp2(cents / 1200.0);
}

double centsBetween(double freqHz, double referenceHz)
{
    return 1200.0 * std::log2(freqHz / referenceHz);
}

std::vector<double> tone(const Tone &shape, int nSamples)
{
    std::vector<double> out(static_cast<std::size_t>(std::max(nSamples, 0)), 0.0);
    Random random(shape.seed);
    const double twoPi = 2.0 * std::numbers::pi;
    // The phase of the fundamental, integrated so that vibrato bends it smoothly.
    std::vector<double> phase(out.size());
    double running = 0.0;
    for (std::size_t i = 0; i < out.size(); i++) {
        phase[i] = running;
        const double t = static_cast<double>(i) / shape.sampleRate;
        const double cents = shape.vibratoDepthCents * std::sin(twoPi * shape.vibratoHz * t);
        running += twoPi * detuneHz(shape.freqHz, cents) / shape.sampleRate;
    }
    for (int k = 1; k * shape.freqHz < 0.45 * shape.sampleRate; k++) {
        const double amplitude = shape.amplitude * partialAmplitude(shape.timbre, k);
        const double offset = twoPi * random.next();
        if (amplitude == 0.0)
            continue;
        for (std::size_t i = 0; i < out.size(); i++)
            out[i] += amplitude * std::sin(k * phase[i] + offset);
    }
    return out;
}

std::vector<double> harmonics(double freqHz, const std::vector<double> &amplitudes, int nSamples,
                              double sampleRate)
{
    std::vector<double> out(static_cast<std::size_t>(std::max(nSamples, 0)), 0.0);
    for (std::size_t k = 1; k <= amplitudes.size(); k++) {
        const double step = 2.0 * std::numbers::pi * freqHz * static_cast<double>(k) / sampleRate;
        for (std::size_t i = 0; i < out.size(); i++)
            out[i] += amplitudes[k - 1] * std::sin(step * static_cast<double>(i));
    }
    return out;
}

std::vector<double> sine(double freqHz, double amplitude, int nSamples, double sampleRate)
{
    return harmonics(freqHz, {amplitude}, nSamples, sampleRate);
}

std::vector<double> attackAfterLowerNote(double lowHz, double highHz, double halfway, int change,
                                         int attack, int nSamples)
{
    std::vector<double> sound = harmonics(lowHz, {6000.0, 5000.0, 3000.0, 1500.0}, nSamples);
    const std::vector<double> note = harmonics(highHz, {200.0, 8000.0, 4000.0, 2000.0}, nSamples);
    std::vector<double> between(sound.size(), 0.0);
    for (const double h : {0.5, 1.5, 2.5})
        mix(between, sine(h * highHz, halfway, nSamples));
    for (int i = std::max(change, 0); i < nSamples; i++) {
        const auto at = static_cast<std::size_t>(i);
        const double fade = std::max(0.0, 1.0 - static_cast<double>(i - change) / attack);
        sound[at] = note[at] + between[at] * fade;
    }
    return sound;
}

std::vector<double> whiteNoise(double amplitude, int nSamples, std::uint32_t seed)
{
    Random random(seed);
    std::vector<double> out(static_cast<std::size_t>(std::max(nSamples, 0)));
    for (double &v : out)
        v = amplitude * (2.0 * random.next() - 1.0);
    return out;
}

std::vector<double> silence(int nSamples)
{
    return std::vector<double>(static_cast<std::size_t>(std::max(nSamples, 0)), 0.0);
}

void mix(std::vector<double> &a, const std::vector<double> &b)
{
    const std::size_t n = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < n; i++)
        a[i] += b[i];
}

TempWav::TempWav(const std::vector<double> &left, const std::vector<double> &right,
                 int bytesPerSample, double sampleRate)
{
    const int nChannels = right.empty() ? 1 : 2;
    const double limit = bytesPerSample == 1 ? 127.0 : 32767.0;
    const double low = -limit - 1.0;
    // Interleaved little-endian sample bytes.
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i < left.size(); i++) {
        for (int channel = 0; channel < nChannels; channel++) {
            const double v = channel == 0 ? left[i] : (i < right.size() ? right[i] : 0.0);
            const auto sample = static_cast<int>(std::clamp(std::round(v), low, limit));
            bytes.push_back(static_cast<unsigned char>(sample & 0xFF));
            if (bytesPerSample == 2)
                bytes.push_back(static_cast<unsigned char>((sample >> 8) & 0xFF));
        }
    }
    // putSamples writes 16-bit words; 8-bit data goes through it as byte pairs.
    if (bytes.size() % 2 != 0)
        bytes.push_back(0);
    std::vector<std::int16_t> words(bytes.size() / 2);
    std::memcpy(words.data(), bytes.data(), bytes.size());

    WavFileOC wav;
    const auto dataBytes = static_cast<int>(bytes.size());
    if (!wav.setupWithSampleRate(sampleRate, nChannels, bytesPerSample, dataBytes))
        return;
    filePath = wav.getFilePath();
    written = wav.putSamples(words.data(), static_cast<int>(words.size()), 0) &&
              wav.finalizeWithByteSize(dataBytes);
}

TempWav::~TempWav()
{
    if (!filePath.empty())
        std::remove(filePath.c_str());
}

} // namespace quorval::testsignals
