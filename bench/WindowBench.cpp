// The window's own speed: from start-up to the first trace of the demo sound drawn, and the
// longest the main thread goes without handling events while a 10-minute sound is analysed in
// the background (the window must never freeze: under 16 ms).

#include "GeneratedMusic.h"
#include "app/AppDelegate.h"
#include "app/MainViewController.h"
#include "app/MainWindow.h"
#include "bench/BenchMain.h"
#include "display/DisplayView.h"
#include "options/OptionStore.h"
#include "options/Parameters.h"
#include "options/PrivateFolders.h"
#include "streams/MusicStream.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>

namespace quorval {
namespace {

QTemporaryDir &scratchFolder()
{
    static QTemporaryDir folder;
    return folder;
}

// Runs the event loop until done() holds; false after timeoutMs.
template <typename Done> bool runUntil(Done done, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        if (clock.elapsed() > timeoutMs)
            return false;
        QApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return true;
}

void BM_StartupToFirstTrace(benchmark::State &state)
{
    for (auto _ : state) {
        const auto began = std::chrono::steady_clock::now();
        AppDelegate delegate(Parameters::shared());
        delegate.initialOpenFilePath = QStringLiteral(QUORVAL_DEMO_WAV);
        if (!delegate.applicationDidFinishLaunching()) {
            state.SkipWithError("start-up failed");
            return;
        }
        MainViewController &controller = *delegate.mainViewController;
        // Drawn: the visible stretch analysed and painted.
        const bool drawn = runUntil(
            [&controller] {
                auto music = controller.musicStream();
                return music && music->waitUntilCalculated(std::chrono::milliseconds(0));
            },
            60000);
        controller.displayView->repaint();
        const auto ended = std::chrono::steady_clock::now();
        if (!drawn) {
            state.SkipWithError("the demo was not analysed in time");
            return;
        }
        state.SetIterationTime(std::chrono::duration<double>(ended - began).count());
    }
}
BENCHMARK(BM_StartupToFirstTrace)->Iterations(3)->Unit(benchmark::kMillisecond)->UseManualTime();

void BM_LongestStallWhileAnalysing(benchmark::State &state)
{
    const QString path = scratchFolder().filePath(QStringLiteral("ten-minutes.wav"));
    if (!bench::writeGeneratedMusic(path.toStdString(), 600.0)) {
        state.SkipWithError("can't write the sound");
        return;
    }
    for (auto _ : state) {
        AppDelegate delegate(Parameters::shared());
        delegate.initialOpenFilePath = path;
        if (!delegate.applicationDidFinishLaunching()) {
            state.SkipWithError("start-up failed");
            return;
        }
        MainViewController &controller = *delegate.mainViewController;
        // The window's first paint (fonts, icons, styles) is start-up, not analysis.
        (void)delegate.window->grab();
        // A timer that should fire every millisecond: the gaps between its ticks are the
        // stalls, repaints and status updates included.
        QElapsedTimer clock;
        clock.start();
        qint64 last = clock.nsecsElapsed();
        qint64 longest = 0;
        int over16ms = 0;
        QTimer ticker;
        ticker.setTimerType(Qt::PreciseTimer);
        ticker.setInterval(1);
        QObject::connect(&ticker, &QTimer::timeout, [&] {
            const qint64 now = clock.nsecsElapsed();
            longest = std::max(longest, now - last);
            over16ms += now - last > 16'000'000 ? 1 : 0;
            last = now;
        });
        ticker.start();
        const auto began = std::chrono::steady_clock::now();
        const bool done = runUntil(
            [&controller] {
                auto music = controller.musicStream();
                // The full check syncs with the data queue: only once the flags say idle.
                return music && !music->wavStream->copying && !music->isCalculating() &&
                       music->waitUntilCalculated(std::chrono::milliseconds(0));
            },
            600000);
        const auto ended = std::chrono::steady_clock::now();
        ticker.stop();
        if (!done) {
            state.SkipWithError("not analysed in time");
            return;
        }
        state.SetIterationTime(std::chrono::duration<double>(ended - began).count());
        state.counters["longest_stall_ms"] = static_cast<double>(longest) / 1e6;
        state.counters["stalls_over_16ms"] = over16ms;
    }
}
BENCHMARK(BM_LongestStallWhileAnalysing)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

} // namespace
} // namespace quorval

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // Folders of its own: a recording another run left behind would stop the start-up
    // at the recovery question.
    const quorval::PrivateFolders folders;
    if (!folders.isValid())
        return 1;
    QApplication app(argc, argv);
    return quorval::bench::runWithStreams(app, argc, argv);
}
