#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Generated test signals shared by the tests of every folder: tones, noise and silence as
// doubles in raw integer sample units (16-bit full scale is 32767), and temporary WAV files
// made from them through WavFileOC.
namespace quorval::testsignals {

constexpr double kSampleRate = 44100.0;

// Harmonic spectra, each a list of partial amplitudes relative to the loudest.
enum class Timbre
{
    sine,            // the fundamental alone
    sawtooth,        // every harmonic, amplitude 1/k: bright, like a bowed string
    clarinet,        // odd harmonics strong, even ones weak
    hollow,          // a few harmonics falling off fast, like a flute
    weakFundamental, // the fundamental 26 dB below the second harmonic
};

// All timbres, for tests that loop over them.
const std::vector<Timbre> &allTimbres();
const char *timbreName(Timbre timbre);

// Frequency in Hz of a note number (69 = a, one unit per equal-tempered semitone).
double noteToHz(double note, double aHz = 440.0);
// freqHz moved by cents.
double detuneHz(double freqHz, double cents);
// Signed distance in cents from referenceHz to freqHz.
double centsBetween(double freqHz, double referenceHz);

// A harmonic tone of nSamples samples at freqHz with peak partial amplitude `amplitude`.
// Partials above 0.45 × sampleRate are left out. Phases come from `seed`, so a tone is
// reproducible. With vibratoDepthCents > 0 the frequency swings sinusoidally at vibratoHz.
struct Tone
{
    double freqHz = 440.0;
    Timbre timbre = Timbre::sawtooth;
    double amplitude = 8000.0;
    double vibratoHz = 0.0;
    double vibratoDepthCents = 0.0;
    std::uint32_t seed = 1;
    double sampleRate = kSampleRate;
};
std::vector<double> tone(const Tone &shape, int nSamples);

// Harmonic k (1-based) of freqHz with amplitude amplitudes[k - 1], sine phase 0.
std::vector<double> harmonics(double freqHz, const std::vector<double> &amplitudes, int nSamples,
                              double sampleRate = kSampleRate);

// Pure sine of amplitude `amplitude` and phase 0.
std::vector<double> sine(double freqHz, double amplitude, int nSamples,
                         double sampleRate = kSampleRate);

// White noise, uniform in [-amplitude, amplitude], reproducible from seed.
std::vector<double> whiteNoise(double amplitude, int nSamples, std::uint32_t seed);

// Zeros.
std::vector<double> silence(int nSamples);

// Adds b into a, sample by sample (a and b of equal length).
void mix(std::vector<double> &a, const std::vector<double> &b);

// A low note with a strong fundamental until sample change, then a note of highHz with a weak
// fundamental whose first attack samples also hold partials halfway between its own (at 0.5,
// 1.5 and 2.5 times highHz, of amplitude halfway, fading to nothing), as a reed attacking a note
// can double its period for a moment; nSamples in all.
std::vector<double> attackAfterLowerNote(double lowHz, double highHz, double halfway, int change,
                                         int attack, int nSamples);

// A temporary WAV file holding a signal, removed when the object goes.
class TempWav
{
public:
    // Writes `left` (and `right` for stereo; empty for mono) rounded to integers and clipped to
    // the sample size, bytesPerSample 1 (signed bytes, as WavFileOC reads them) or 2.
    // ok() tells whether writing worked.
    TempWav(const std::vector<double> &left, const std::vector<double> &right, int bytesPerSample,
            double sampleRate = kSampleRate);
    ~TempWav();
    TempWav(const TempWav &) = delete;
    TempWav &operator=(const TempWav &) = delete;

    [[nodiscard]] bool ok() const { return written; }
    [[nodiscard]] const std::string &path() const { return filePath; }

private:
    std::string filePath;
    bool written = false;
};

} // namespace quorval::testsignals
