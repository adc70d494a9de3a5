#include "cli/Tool.h"
#include "display/DisplayView.h"
#include "display/TraceArea.h"
#include "options/Parameters.h"
#include "streams/MusicStream.h"
#include "streams/PitchStream.h"
#include "streams/Quorval.h"

#include <QScopeGuard>

#include <chrono>
#include <cmath>

namespace quorval {

namespace {

// The spectrum view draws the segment at the needle: has the calculation lay it in.
bool waitForSpectrum(MusicStream &music, double timeSeconds)
{
    const std::shared_ptr<PitchStream> pitch = music.pitchStream();
    if (!pitch)
        return false;
    const auto wanted = static_cast<std::int64_t>(
        std::max(0.0, std::floor(timeSeconds / pitch->xScale - pitch->overlap)));
    music.showSpectrumAt(timeSeconds);
    (void)music.waitUntilCalculated(std::chrono::seconds(60));
    return music.fftPitchIndex == wanted;
}

} // namespace

int Tool::render(const CommandLine &line)
{
    // The picture's own view: the option store is only read, for its "View type".
    const ViewType type =
        viewTypeOfCommandLine(line.view).value_or(Parameters::shared().currentViewType());
    const std::shared_ptr<MusicStream> music = openAndAnalyse(line);
    if (!music)
        return kFailed;
    const MusicStream::TimeRange whole = music->timeRange();
    const double from = line.fromSeconds.value_or(whole.start);
    const double to = line.toSeconds.value_or(whole.end);
    if (!(from < to) || from < whole.start || to > whole.end) {
        complain(QStringLiteral("%1: the stretch %2 to %3 s lies outside the sound, which runs "
                                "from %4 to %5 s")
                     .arg(line.file)
                     .arg(from)
                     .arg(to)
                     .arg(whole.start)
                     .arg(whole.end));
        return kBadUsage;
    }
    const bool spectrum = type == ViewType::Spectrum;
    music->timeView->leftTime = from;
    music->timeView->timeWidth = to - from;
    // The spectrum is of the segment at the needle, here the middle of the stretch, away from
    // the attack of a note that starts it; time views show no needle.
    const double middle = (from + to) / 2.0;
    auto playback = std::make_shared<PlaybackState>();
    playback->needleTime = spectrum ? middle : -1.0;
    if (spectrum && !waitForSpectrum(*music, middle))
        complain(QStringLiteral("%1: no spectrum at %2 s").arg(line.file).arg(middle));
    const auto release = qScopeGuard([] { Quorval::setVisibleSegmentSource(nullptr); });
    TraceArea area;
    area.displayView->setSound(music);
    area.displayView->setViewType(type);
    area.displayView->setPlayback(playback);
    if (!area.writePicture(line.outputPath, QSizeF(line.width, line.height), line.scale)) {
        complain(QStringLiteral("can't write the picture %1").arg(line.outputPath));
        return kFailed;
    }
    return kOk;
}

} // namespace quorval
