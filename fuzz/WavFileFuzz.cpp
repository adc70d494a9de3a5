// Fuzz target: arbitrary bytes written to a file are opened as a WAV file; whatever is accepted
// is read, measured and copied. Crashes, sanitizer reports, leaks and the checks below fail.

#include "analysis/VolumeResultOC.h"
#include "analysis/WavFileOC.h"
#include "fuzz/FuzzInput.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

// Enough frames to cross the end of any region the fuzzer's inputs (up to 4 KB) can hold.
constexpr int kMaxFrames = 4200;

struct Paths
{
    std::string input;
    std::string copy;

    Paths()
    {
        const auto directory = std::filesystem::temp_directory_path();
        const std::string stem = "quorval-fuzz-" + std::to_string(::getpid());
        input = (directory / (stem + ".wav")).string();
        copy = (directory / (stem + "-copy.wav")).string();
    }

    ~Paths()
    {
        std::remove(input.c_str());
        std::remove(copy.c_str());
    }
};

void require(bool condition, const char *what)
{
    if (!condition) {
        std::fprintf(stderr, "WavFileFuzz: broken: %s\n", what);
        std::abort();
    }
}

bool usable(const quorval::WavFileOC &wav)
{
    return wav.getNChannels() >= 1 &&
           (wav.getBytesPerSample() == 1 || wav.getBytesPerSample() == 2);
}

// The harness's own loop needs no coverage feedback; leaving it out makes each run cheaper.
__attribute__((no_sanitize("coverage"))) void
checkSamples(const quorval::WavFileOC &wav, const std::vector<double> &samples, int nFrames)
{
    const bool sound = usable(wav);
    for (int f = 0; f < nFrames; f++) {
        const double v = samples[static_cast<std::size_t>(f)];
        require(std::isfinite(v), "sample not finite");
        if (sound)
            require(v >= -32768.0 && v <= 32767.0, "sample out of range");
        else
            require(v == 0.0, "unusable format read as sound");
    }
}

void readAndMeasure(quorval::WavFileOC &wav)
{
    const int frameBytes = std::max(1, wav.getNChannels() * std::max(wav.getBytesPerSample(), 1));
    const int maxBytes = wav.getMaxDataBytes();
    const int regionFrames = maxBytes / frameBytes;
    static std::vector<double> samples(kMaxFrames);

    // From the start, a little past the region's end (wrapping).
    const int nFrames =
        static_cast<int>(std::min<std::int64_t>(std::int64_t{regionFrames} + 3, kMaxFrames));
    std::fill_n(samples.begin(), nFrames, -1e300);
    require(wav.getSamples(samples.data(), 0, nFrames), "getSamples from 0 failed");
    checkSamples(wav, samples, nFrames);

    // From the middle across the wrap, at a location that need not be frame-aligned.
    const int middle = maxBytes / 2;
    std::fill_n(samples.begin(), nFrames, -1e300);
    require(wav.getSamples(samples.data(), middle, nFrames), "getSamples from the middle failed");
    checkSamples(wav, samples, nFrames);

    quorval::VolumeResultOC volume;
    wav.getVolume(0, std::min(regionFrames, kMaxFrames - 1) + 1, volume);
    require(volume.getRMS() >= 0.0 && std::isfinite(volume.getRMS()), "bad RMS");
    if (volume.getMin() <= volume.getMax())
        require(volume.getMin() >= -32768.0 && volume.getMax() <= 32767.0, "volume out of range");
    wav.getVolume(middle, nFrames, volume);
    require(volume.getRMS() >= 0.0, "bad RMS across the wrap");
    (void)wav.status();
}

void copyOf(const quorval::WavFileOC &source, const std::string &path)
{
    quorval::WavFileOC copy;
    if (!copy.setupFromWavFile(source, path))
        return;
    (void)copy.copyHeadersFromWavFile(source);
    int at = 0;
    int pieces = 0;
    while (int n = copy.copyDataFromWavFile(source, at, at, 1 << 30)) {
        require(n > 0 && n <= quorval::WavFileOC::kMaxCopyBytes, "copy piece out of bounds");
        at += n;
        require(++pieces < 1000, "copy does not end");
    }
    (void)copy.finalizeWithByteSize(at);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const Paths paths;
    if (!quorval::fuzz::writeFile(paths.input, data, size))
        return 0;
    quorval::WavFileOC wav;
    if (!wav.setupFromPath(paths.input))
        return 0;
    if (wav.isVerified()) {
        require(wav.getNChannels() == 1 || wav.getNChannels() == 2, "channels");
        require(wav.getSampleRate() >= 0.0, "sample rate");
        require(wav.getHeaderLength() >= 44, "header length");
        require(wav.getFileDataLength() >= 0 && wav.getMaxDataBytes() == wav.getFileDataLength(),
                "data length");
    } else {
        require(wav.getNChannels() == 0 && wav.getSampleRate() == 0.0, "short format body");
    }
    readAndMeasure(wav);
    copyOf(wav, paths.copy);
    return 0;
}
