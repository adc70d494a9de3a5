#include "app/ReportCommands.h"

#include "app/AskViewController.h"
#include "streams/MusicStream.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <QFileInfo>
#include <QProgressDialog>
#include <QSaveFile>

#include <cstdlib>

namespace quorval {

ReportCommands::ReportCommands(QWidget *parentWindow, Host given)
    : QObject(parentWindow), window(parentWindow), host(std::move(given))
{
}

ReportCommands::~ReportCommands()
{
    cancelDeviations();
}

void ReportCommands::deviations()
{
    const std::shared_ptr<MusicStream> music = host.sound();
    if (!music || running.isRunning())
        return;
    // The selection is on the time axis whichever view shows.
    const HView &time = *music->timeView;
    const double t0 = time.hasSelection() ? time.selectionStart : 0.0;
    const double t1 = time.hasSelection() ? time.selectionEnd : 0.0;
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
    results = done;
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
