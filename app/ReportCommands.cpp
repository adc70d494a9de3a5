#include "app/ReportCommands.h"

#include "app/AskViewController.h"
#include "options/Parameters.h"
#include "scale/KeyGuess.h"
#include "scale/Scale.h"
#include "streams/MusicStream.h"
#include "streams/NoteReport.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <QFileInfo>
#include <QProgressDialog>
#include <QSaveFile>

#include <cstdlib>
#include <utility>

namespace quorval {

namespace {

// The selection in seconds; zero width (the whole sound) without one. It is on the time axis
// whichever view shows.
std::pair<double, double> selectionOf(const MusicStream &music)
{
    const HView &time = *music.timeView;
    if (!time.hasSelection())
        return {0.0, 0.0};
    return {time.selectionStart, time.selectionEnd};
}

} // namespace

ReportCommands::ReportCommands(QWidget *parentWindow, Host given)
    : QObject(parentWindow), window(parentWindow), host(std::move(given))
{
}

ReportCommands::~ReportCommands()
{
    cancelDeviations();
    stopGuessing();
}

void ReportCommands::stopGuessing()
{
    guessCanceled = true;
    if (guessing.joinable())
        guessing.join();
    guessCanceled = false;
}

void ReportCommands::guessKey()
{
    const std::shared_ptr<MusicStream> music = host.sound();
    if (!music || guessing.joinable())
        return;
    const auto [t0, t1] = selectionOf(*music);
    // The notes are cut on this thread, which computes what the analysis has not yet.
    guessing = std::thread([this, music, t0, t1] {
        const std::optional<KeyGuess::Result> guess =
            NoteReport::guessKey(*music, t0, t1, guessCanceled);
        if (guessCanceled)
            return;
        QMetaObject::invokeMethod(
            this,
            [this, music, found = guess.has_value(),
             tonic = guess ? guess->best.tonicPitchClass : 0, minor = guess && guess->best.minor,
             confidence = guess ? guess->confidence : 0.0] {
                keyGuessed(music, found, tonic, minor, confidence);
            },
            Qt::QueuedConnection);
    });
    emit changed();
}

void ReportCommands::keyGuessed(const std::shared_ptr<MusicStream> &music, bool found,
                                int tonicPitchClass, bool minor, double confidence)
{
    if (guessing.joinable())
        guessing.join();
    emit changed();
    // Another sound took its place meanwhile: the answer is no longer about what shows.
    if (music != host.sound())
        return;
    if (!found) {
        AskViewController::message(window, tr("Guess Key"),
                                   tr("This sound has no notes to guess a key from."));
        return;
    }
    const Scale scale = Scale::current();
    const QString key = scale.keyAndMode(tonicPitchClass, minor);
    const QString question = tr("This sound seems to be in %1 (confidence %2). Set the key to %1?")
                                 .arg(key, QString::number(confidence, 'f', 2));
    if (AskViewController::ask(window, tr("Guess Key"), question, {.no = true}) !=
            AskViewController::Answer::yes ||
        !host.parameters)
        return;
    // The mode first: it chooses the spelling the key's name is found in.
    (void)host.parameters->minor.setValue(minor);
    (void)host.parameters->key.setFromText(scale.keyName(tonicPitchClass, minor));
    emit keySet();
}

void ReportCommands::deviations()
{
    const std::shared_ptr<MusicStream> music = host.sound();
    if (!music || running.isRunning())
        return;
    const auto [t0, t1] = selectionOf(*music);
    canceled = false;
    progress =
        new QProgressDialog(QStringLiteral("Computing deviations"), tr("Cancel"), 0, 0, window);
    progress->setWindowTitle(tr("Deviations"));
    progress->setMinimumDuration(300);
    progress->setAttribute(Qt::WA_DeleteOnClose);
    connect(progress, &QProgressDialog::canceled, this, &ReportCommands::cancelDeviations);
    running.start(music, t0, t1, [this](const Deviations::Results &done) { deviationsDone(done); });
    emit changed();
}

void ReportCommands::closeProgress()
{
    if (progress) {
        progress->disconnect(this);
        progress->close();
        progress = nullptr;
    }
}

void ReportCommands::cancelDeviations()
{
    if (running.isRunning()) {
        canceled = true;
        running.cancel();
    }
    closeProgress();
    emit changed();
}

void ReportCommands::deviationsDone(const Deviations::Results &done)
{
    closeProgress();
    if (canceled)
        return;
    emit changed();
    AskViewController::message(
        window, tr("Deviations"),
        QString::fromStdString(Deviations::report(done) + "\n\n" + Deviations::centsReport(done)));
}

void ReportCommands::toggleDeveloperMode()
{
    Quorval::setDeveloperMode(!Quorval::developerMode());
    emit changed();
}

void ReportCommands::status()
{
    const std::shared_ptr<MusicStream> music = host.sound();
    AskViewController::message(window, QStringLiteral("Status"),
                               music ? QString::fromStdString(music->description())
                                     : tr("No sound is open."));
}

void ReportCommands::savePitches()
{
    const std::shared_ptr<MusicStream> music = host.sound();
    if (!music)
        return;
    const std::optional<QString> path = host.chooseFileToSave(
        QFileInfo(QString::fromStdString(music->wavStream->fileTitle)).completeBaseName() +
        QStringLiteral(".txt"));
    if (!path)
        return;
    // Segment index, start time in seconds, pitch (note number, -1 none) and goodness.
    QByteArray text;
    for (const MusicStream::SegmentValue &v : music->segmentValues())
        text += QString::asprintf("%f %f %f %f\n", static_cast<double>(v.index), v.timeSeconds,
                                  v.pitch, v.goodness)
                    .toLatin1();
    QSaveFile file(*path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.commit())
        AskViewController::message(window, QString(),
                                   tr("Can't write the pitch file: %1").arg(file.errorString()));
}

void ReportCommands::crash()
{
    if (AskViewController::ask(window, tr("Crash"),
                               QStringLiteral("Do you really want to crash this program?"),
                               {.no = true}) == AskViewController::Answer::yes)
        std::abort();
}

} // namespace quorval
