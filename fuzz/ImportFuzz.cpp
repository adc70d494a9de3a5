// Fuzz target: arbitrary bytes are opened as a sound file, as the window opens one: the WAV
// reader or, failing it, the decoder; whatever opens is copied, cut into segments and analysed.
// The first byte picks "Lowest Note" from ordinary values and the ends of its range, so that the
// longest and shortest segments are reached too. Crashes, sanitizer reports, hangs and the checks
// below fail.

#include "fuzz/FuzzInput.h"
#include "options/OptionStore.h"
#include "options/Parameters.h"
#include "streams/MusicStream.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <unistd.h>

namespace {

void require(bool condition, const char *what)
{
    if (!condition) {
        std::fprintf(stderr, "ImportFuzz: broken: %s\n", what);
        std::abort();
    }
}

struct Harness
{
    Harness()
    {
        static int argc = 1;
        static char name[] = "import_fuzz";
        static char *argv[] = {name, nullptr};
        app = std::make_unique<QCoreApplication>(argc, argv);
        quorval::OptionStore::usePrivateStore(store.path());
        // Nothing is drawn: work meant for the main thread runs where it is posted.
        quorval::Quorval::installMainPoster([](std::function<void()> fn) { fn(); });
        input = (std::filesystem::temp_directory_path() /
                 ("quorval-import-fuzz-" + std::to_string(::getpid()) + ".wav"))
                    .string();
    }
    ~Harness() { std::remove(input.c_str()); }

    std::unique_ptr<QCoreApplication> app;
    QTemporaryDir store;
    std::string input;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static Harness harness;
    if (size < 1)
        return 0;
    static constexpr double kLowestNotes[] = {55.0, 55.0, 55.0, 20.0, 90.0, 0.0, 1.0, 126.0};
    quorval::Parameters &options = quorval::Parameters::shared();
    (void)options.highestNote.setValue(127.0);
    (void)options.lowestNote.setValue(kLowestNotes[data[0] % 8]);
    if (!quorval::fuzz::writeFile(harness.input, data + 1, size - 1))
        return 0;

    const auto wav = quorval::WavStream::createFromFile(harness.input);
    if (!wav)
        return 0;
    wav->waitForCopy();
    require(wav->sampleRate() >= quorval::WavStream::kMinSampleRate, "rate refused too late");
    require(wav->maxFrames >= 0 && wav->maxFrames * wav->bytesPerFrame <= 0x7fffffff, "ring size");
    (void)wav->description();
    const auto music = quorval::MusicStream::create(wav);
    require(music->waitUntilCalculated(std::chrono::seconds(20)), "analysis does not end");
    require(music->segLength() >= 16 && music->segLength() <= (1 << 20), "segment length");
    const auto values = music->segmentValues();
    const std::int64_t frames = wav->maximumIndex();
    require(static_cast<std::int64_t>(values.size()) == frames / music->segSpacing(),
            "segment count");
    for (const auto &value : values) {
        // Every segment is done (0 would be "not yet"); a pitch is a finite note number.
        require(value.pitch != 0.0 && std::isfinite(value.pitch), "pitch");
        require(value.goodness >= 0.0 && std::isfinite(value.goodness), "goodness");
    }
    return 0;
}
