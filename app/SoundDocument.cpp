#include "app/SoundDocument.h"

#include "app/AskViewController.h"
#include "app/IncomingFiles.h"
#include "options/OptionsFile.h"
#include "options/Parameters.h"
#include "streams/MusicStream.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QWidget>

#include <algorithm>
#include <cmath>

namespace quorval {

SoundDocument::SoundDocument(Parameters &params, QWidget *parentWindow, std::function<void()> stop,
                             Panels filePanels)
    : panels(std::move(filePanels)), incoming(new IncomingFiles(
                                         [this](const QString &path) {
                                             window->raise();
                                             window->activateWindow();
                                             if (shouldDiscardModifiedSound())
                                                 (void)openFile(path);
                                         },
                                         this)),
      parameters(params), window(parentWindow), stopTransport(std::move(stop))
{
    if (!panels.chooseFileToOpen) {
        panels.chooseFileToOpen = [this]() -> std::optional<QString> {
            const QString path = QFileDialog::getOpenFileName(
                window, tr("Open"), QString(),
                tr("Sound files (*.wav *.mp3 *.flac *.ogg *.opus *.aif *.aiff);;All files (*)"));
            if (path.isEmpty())
                return std::nullopt;
            return path;
        };
    }
    if (!panels.chooseFileToSave) {
        panels.chooseFileToSave = [this](const QString &suggested,
                                         const QString &title) -> std::optional<QString> {
            QFileDialog dialog(window, title, suggested, tr("WAV sound (*.wav)"));
            dialog.setAcceptMode(QFileDialog::AcceptSave);
            dialog.setDefaultSuffix(QStringLiteral("wav"));
            if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
                return std::nullopt;
            return dialog.selectedFiles().front();
        };
    }
}

SoundDocument::~SoundDocument()
{
    Quorval::setMusicStream(nullptr);
}

std::shared_ptr<WavStream> SoundDocument::wavStream() const
{
    return current ? current->wavStream : nullptr;
}

QString SoundDocument::soundName() const
{
    const std::shared_ptr<WavStream> wav = wavStream();
    return wav ? QString::fromStdString(wav->fileTitle) : QString();
}

QString SoundDocument::filePath() const
{
    const std::shared_ptr<WavStream> wav = wavStream();
    if (!wav)
        return {};
    if (wav->saveURL)
        return QFileInfo(QFile::decodeName(wav->saveURL->c_str())).absoluteFilePath();
    return openedStream.lock() == wav ? openedPath : QString();
}

void SoundDocument::showMusic(std::shared_ptr<MusicStream> music)
{
    if (!music)
        return;
    letDiscardedGo();
    current = std::move(music);
    emit soundShown(current);
}

void SoundDocument::show(std::shared_ptr<WavStream> wav)
{
    if (wav)
        showMusic(MusicStream::create(std::move(wav)));
}

void SoundDocument::letDiscardedGo()
{
    const std::shared_ptr<WavStream> gone = std::exchange(discardedStream, {}).lock();
    if (!gone || gone != wavStream())
        return;
    // Unmodified, its working file goes with it.
    gone->modified = false;
    emit discarded(gone);
}

void SoundDocument::newRecording()
{
    if (!shouldDiscardModifiedSound())
        return;
    // WavStream says "Can't create .wav file -- internal error" when it cannot.
    show(WavStream::createForRecording(1, 2, 44100.0));
}

void SoundDocument::open()
{
    if (!shouldDiscardModifiedSound())
        return;
    if (const std::optional<QString> path = panels.chooseFileToOpen())
        (void)openFile(*path);
}

bool SoundDocument::openFile(const QString &path)
{
    // WavStream says "Can't read sound file" and why when it cannot.
    std::shared_ptr<WavStream> wav =
        WavStream::createFromFile(QFile::encodeName(path).toStdString());
    if (!wav) {
        emit fileUnreadable(QFileInfo(path).absoluteFilePath());
        return false;
    }
    openedStream = wav;
    openedPath = QFileInfo(path).absoluteFilePath();
    // A bad companion file has its message; the sound opens all the same.
    const std::optional<QString> taken = OptionsFile::takeCompanionScale(parameters, path);
    show(std::move(wav));
    if (taken)
        emit scaleTaken(*taken);
    emit fileUsed(openedPath);
    return true;
}

bool SoundDocument::canSave() const
{
    const std::shared_ptr<WavStream> wav = wavStream();
    return wav && (wav->modified || !wav->saveURL);
}

bool SoundDocument::saveTo(const std::optional<QString> &path)
{
    const std::shared_ptr<WavStream> wav = wavStream();
    if (!wav)
        return false;
    stopTransport();
    // WavStream says "Can't save sound file" when it fails, and the old file stays whole.
    const bool done = path ? wav->saveAs(QFile::encodeName(*path).toStdString()) : wav->save();
    if (done) {
        if (wav->saveURL)
            emit fileUsed(QFile::decodeName(wav->saveURL->c_str()));
        emit saved(wav);
    }
    emit stateChanged();
    return done;
}

void SoundDocument::save()
{
    const std::shared_ptr<WavStream> wav = wavStream();
    if (!wav)
        return;
    if (!wav->saveURL)
        saveAs();
    else
        (void)saveTo(std::nullopt);
}

void SoundDocument::saveAs()
{
    const std::shared_ptr<WavStream> wav = wavStream();
    if (!wav)
        return;
    QString suggested = wav->saveURL ? QFile::decodeName(wav->saveURL->c_str())
                                     : QString::fromStdString(wav->fileTitle);
    if (!suggested.endsWith(QLatin1String(".wav"), Qt::CaseInsensitive))
        suggested = QFileInfo(suggested).completeBaseName() + QStringLiteral(".wav");
    if (const std::optional<QString> path = panels.chooseFileToSave(suggested, tr("Save As")))
        (void)saveTo(path);
}

std::optional<std::pair<std::int64_t, std::int64_t>> SoundDocument::selectedFrames() const
{
    if (!current || !current->timeView->hasSelection())
        return std::nullopt;
    const std::shared_ptr<WavStream> wav = current->wavStream;
    const auto [lowest, highest] = Quorval::dataQueue().sync(
        [&wav] { return std::make_pair(wav->minimumIndex_D(), wav->maximumIndex_D()); });
    const auto frameAt = [&](double t) {
        return std::clamp(static_cast<std::int64_t>(std::llround(t / wav->xScale)), lowest,
                          highest);
    };
    const std::int64_t first = frameAt(current->timeView->selectionStart);
    const std::int64_t end = frameAt(current->timeView->selectionEnd);
    if (end <= first)
        return std::nullopt;
    return std::make_pair(first, end);
}

void SoundDocument::exportSelection()
{
    const std::shared_ptr<WavStream> wav = wavStream();
    const auto frames = selectedFrames();
    if (!wav || !frames)
        return;
    const std::optional<QString> path = panels.chooseFileToSave(
        QFileInfo(soundName()).completeBaseName() + QStringLiteral(" selection.wav"),
        tr("Export Selection"));
    if (!path)
        return;
    // Written as Save As writes (links followed, a FIFO written through, nothing half-written
    // over a file); WavStream says "Can't save sound file" when it cannot.
    (void)wav->exportFrames(QFile::encodeName(*path).toStdString(), frames->first, frames->second);
}

bool SoundDocument::shouldDiscardModifiedSound()
{
    const std::shared_ptr<WavStream> wav = wavStream();
    discardedStream.reset();
    if (!parameters.checkForModifiedFiles.value() || !wav || !wav->modified)
        return true;
    const AskViewController::Answer answer = AskViewController::ask(
        window, QStringLiteral("Save modified file?"),
        soundName() + QStringLiteral(" has been modified.\nDo you want to save it?"),
        {.no = true, .cancel = true});
    switch (answer) {
    case AskViewController::Answer::yes:
        save();
        // A save that failed or was cancelled keeps the sound.
        return !wav->modified;
    case AskViewController::Answer::no:
        // Let go only once another sound takes its place (or the window closes): the command
        // may still fail and leave it shown.
        discardedStream = wav;
        return true;
    case AskViewController::Answer::cancel:
        return false;
    }
    return false;
}

bool SoundDocument::mayClose()
{
    if (!shouldDiscardModifiedSound())
        return false;
    stopTransport();
    letDiscardedGo();
    if (const std::shared_ptr<WavStream> wav = wavStream())
        wav->modified = false;
    return true;
}

} // namespace quorval
