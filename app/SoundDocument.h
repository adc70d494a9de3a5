#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

class QWidget;

namespace quorval {

class IncomingFiles;
class MusicStream;
class Parameters;
class WavStream;

// The sound the window shows, and every way one comes and goes: a new recording, Open, a file
// named at start-up, dropped on the window, sent by a later launch or chosen from the recent
// files, Save, Save As and Export Selection. Every file from outside takes one path: queued in
// `incoming`, opened from the event loop once no dialog shows, after the modified-sound check, so
// nothing replaces an unsaved sound without the question.
//
// It shows nothing itself: the sound it holds is signalled (soundShown) to whoever draws it.
// Messages go through the message dialog, parented to the window given. Main thread only.
class SoundDocument : public QObject
{
    Q_OBJECT

public:
    // What the file panels answer; tests replace them. Nothing when cancelled.
    struct Panels
    {
        std::function<std::optional<QString>()> chooseFileToOpen;
        // suggested: a file name to start from; title: the panel's title.
        std::function<std::optional<QString>(const QString &suggested, const QString &title)>
            chooseFileToSave;
    };

    // parameters must outlive the document; window parents its dialogs and panels. stopTransport
    // ends playing and recording before the sound is written. Empty panels: file dialogs.
    SoundDocument(Parameters &parameters, QWidget *window, std::function<void()> stopTransport,
                  Panels panels = {});
    ~SoundDocument() override;

    [[nodiscard]] std::shared_ptr<MusicStream> music() const { return current; }
    [[nodiscard]] std::shared_ptr<WavStream> wavStream() const;

    // File commands, each after the modified-sound check where it replaces the sound.
    void newRecording();
    void open();
    void save();
    void saveAs();
    // Writes the selected stretch as a WAV file of the sound's format, as Save As writes.
    void exportSelection();

    // Opens path at once, without asking; false (after the message) when it cannot be read.
    // The scale's options in an options file beside it, named like it, are taken first.
    bool openFile(const QString &path);
    // Shows a sound from elsewhere (a recovered recording).
    void show(std::shared_ptr<WavStream> wav);

    // Asks about an unsaved sound (when "Check for Modified Files" is on): yes saves it, no goes
    // on, cancel (or a failed save) answers false: the command stops.
    [[nodiscard]] bool shouldDiscardModifiedSound();
    // The check before the window closes; when it may, a sound the user let go is let go.
    [[nodiscard]] bool mayClose();

    [[nodiscard]] bool canSave() const;
    // The selection on the time axis, in frames; nothing without one.
    [[nodiscard]] std::optional<std::pair<std::int64_t, std::int64_t>> selectedFrames() const;
    [[nodiscard]] QString soundName() const;
    // The full path of the file the sound was opened from or last saved to; empty for a
    // recording never saved.
    [[nodiscard]] QString filePath() const;

    Panels panels;
    // Files from outside (dropped, handed over, chosen from the recent files), each opened
    // after the check, the window raised, once no dialog shows and the queue is started.
    IncomingFiles *incoming;

signals:
    // Another sound is shown (never null).
    void soundShown(const std::shared_ptr<MusicStream> &music);
    // A file was opened or saved at path (absolute): worth offering again.
    void fileUsed(const QString &path);
    // The scale's options were taken from the options file beside a sound opened: what, and
    // from which file ("Key D major from demo.plist").
    void scaleTaken(const QString &what);
    // A file asked for could not be read.
    void fileUnreadable(const QString &path);
    // wav was saved; its earlier copies elsewhere may go.
    void saved(const std::shared_ptr<WavStream> &wav);
    // wav, which the user chose not to save, is being replaced.
    void discarded(const std::shared_ptr<WavStream> &wav);
    // The modified mark or where the sound saves changed.
    void stateChanged();

private:
    void showMusic(std::shared_ptr<MusicStream> music);
    void letDiscardedGo();
    bool saveTo(const std::optional<QString> &path);

    Parameters &parameters;
    QWidget *window;
    std::function<void()> stopTransport;
    std::shared_ptr<MusicStream> current;
    // The sound the user chose not to save ("No"): gone for good once replaced.
    std::weak_ptr<WavStream> discardedStream;
    // The file the sound opened last came from, while that sound is the one shown.
    std::weak_ptr<WavStream> openedStream;
    QString openedPath;
};

} // namespace quorval
