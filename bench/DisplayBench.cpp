// The trace area's speed: repainting a 1920 x 1000 point composite view whose columns are
// computed (60 frames a second while scrolling wants < 8 ms), the columns of a freshly zoomed
// 10-second view of an analysed sound (< 30 ms), and a 10-minute file opened until its first
// 10 seconds are drawn with every visible segment computed (< 100 ms after the file is read).

#include "bench/BenchMain.h"
#include "bench/GeneratedMusic.h"
#include "display/DisplayView.h"
#include "options/OptionStore.h"
#include "options/Parameters.h"
#include "streams/DisplayColumnStream.h"
#include "streams/MusicStream.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <QApplication>
#include <QImage>
#include <QMetaObject>
#include <QPainter>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace quorval {
namespace {

constexpr double kVisibleSeconds = 10.0;
constexpr double kHeight = 1000.0;

QTemporaryDir &scratchFolder()
{
    static QTemporaryDir folder;
    return folder;
}

const std::string &tenMinuteFile()
{
    static const std::string path = [] {
        const std::string made =
            scratchFolder().filePath(QStringLiteral("music10.wav")).toStdString();
        if (!bench::writeGeneratedMusic(made, 600.0))
            std::abort();
        return made;
    }();
    return path;
}

// A minute of generated music, opened and analysed once per run.
std::shared_ptr<MusicStream> &analysedMinute()
{
    static std::shared_ptr<MusicStream> music = [] {
        const std::string path =
            scratchFolder().filePath(QStringLiteral("music1.wav")).toStdString();
        if (!bench::writeGeneratedMusic(path, 60.0))
            std::abort();
        auto wav = WavStream::createFromFile(path);
        wav->waitForCopy();
        auto made = MusicStream::create(wav);
        if (!made->waitUntilCalculated(std::chrono::minutes(5)))
            std::fprintf(stderr, "the analysis did not finish\n");
        return made;
    }();
    return music;
}

// The display shows music from `left` seconds over kVisibleSeconds.
void showFrom(MusicStream &music, double left)
{
    music.timeView->leftTime = left;
    music.timeView->timeWidth = kVisibleSeconds;
}

void BM_CompositeRedraw(benchmark::State &state)
{
    const double width = static_cast<double>(state.range(0));
    std::shared_ptr<MusicStream> music = analysedMinute();
    Quorval::setMusicStream(music);
    showFrom(*music, 5.0);
    DisplayView view;
    const QSizeF size(width, kHeight);
    if (!view.prepareNow(size))
        state.SkipWithError("nothing to draw");
    QImage image(static_cast<int>(width), static_cast<int>(kHeight), QImage::Format_RGB32);
    for (auto _ : state) {
        QPainter painter(&image);
        view.paint(painter, size);
    }
    Quorval::setVisibleSegmentSource(nullptr);
    Quorval::setMusicStream(nullptr);
}
BENCHMARK(BM_CompositeRedraw)->Arg(1920)->Unit(benchmark::kMillisecond);

void BM_ColumnsForNewView(benchmark::State &state)
{
    const double width = static_cast<double>(state.range(0));
    std::shared_ptr<MusicStream> music = analysedMinute();
    Quorval::setMusicStream(music);
    DisplayView view;
    const QSizeF size(width, kHeight);
    double left = 0.0;
    for (auto _ : state) {
        // A zoom changes the width a little, so every round makes a new column stream.
        showFrom(*music, left);
        music->timeView->timeWidth += left * 1e-6;
        left = left > 40.0 ? 0.0 : left + 3.0;
        if (!view.prepareNow(size))
            state.SkipWithError("nothing to draw");
    }
    Quorval::setVisibleSegmentSource(nullptr);
    Quorval::setMusicStream(nullptr);
}
BENCHMARK(BM_ColumnsForNewView)->Arg(1920)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_OpenToFirstScreenDrawn(benchmark::State &state)
{
    const std::string &path = tenMinuteFile();
    const QSizeF size(1920.0, kHeight);
    QImage image(1920, static_cast<int>(kHeight), QImage::Format_RGB32);
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        std::shared_ptr<WavStream> wav = WavStream::createFromFile(path);
        auto music = MusicStream::create(wav);
        Quorval::setMusicStream(music);
        {
            DisplayView view;
            // Painted as the window would while the calculation runs, until a paint shows every
            // visible segment computed.
            bool drawn = false;
            while (!drawn) {
                QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
                QPainter painter(&image);
                view.paint(painter, size);
                const std::shared_ptr<DisplayColumnStream> columns = view.columnStream;
                drawn = columns && Quorval::dataQueue().sync([&columns] {
                    (void)columns->nextVisibleSegment_D(*columns->musicStream->pitchStream());
                    return columns->allPitchesCalculated_D;
                });
                if (std::chrono::steady_clock::now() - start > std::chrono::seconds(60)) {
                    state.SkipWithError("the first screen was never complete");
                    break;
                }
            }
            if (drawn && view.prepareNow(size)) {
                QPainter painter(&image);
                view.paint(painter, size);
            }
            state.SetIterationTime(
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        }
        // Untimed: the copy ends and the streams go before the next round.
        Quorval::setVisibleSegmentSource(nullptr);
        Quorval::setMusicStream(nullptr);
        wav->waitForCopy();
        music.reset();
        wav.reset();
        Quorval::calcQueue().sync([] {});
    }
}
BENCHMARK(BM_OpenToFirstScreenDrawn)->Iterations(3)->Unit(benchmark::kMillisecond)->UseManualTime();

} // namespace
} // namespace quorval

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    return quorval::bench::runWithStreams(app, argc, argv,
                                          [] { quorval::analysedMinute().reset(); });
}
