#pragma once

#include "streams/Deviations.h"

#include <QObject>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

class QProgressDialog;
class QWidget;

namespace quorval {

class MusicStream;
class Parameters;

// The commands that report on the sound: View > Deviations (in the background, with a progress
// dialog that cancels it), Options > Guess Key (in the background, then a question whether to
// set the key it found) and the developer's Status, Save Pitches and Crash, with developer
// mode itself. Reports show in the message dialog. Main thread only.
class ReportCommands : public QObject
{
    Q_OBJECT

public:
    struct Host
    {
        // The sound shown, or null.
        std::function<std::shared_ptr<MusicStream>()> sound;
        // Where a file is to be written, from a suggested name; nothing when cancelled.
        std::function<std::optional<QString>(const QString &suggested)> chooseFileToSave;
        // The options the key guess sets.
        Parameters *parameters = nullptr;
    };

    // window parents the dialogs.
    ReportCommands(QWidget *window, Host host);
    ~ReportCommands() override;

    // Deviations of the selection (or the whole sound); one run at a time.
    void deviations();
    void cancelDeviations();
    [[nodiscard]] bool deviationsRunning() const { return running.isRunning(); }

    // Guesses the key of the selection (or the whole sound) off the main thread, then asks
    // whether to set Key and Minor to it; one guess at a time.
    void guessKey();
    [[nodiscard]] bool guessingKey() const { return guessing.joinable(); }

    void toggleDeveloperMode();
    void status();
    // Each segment's index, start, pitch and goodness as a text file.
    void savePitches();
    void crash();

signals:
    // A run started or ended, or developer mode changed: what is enabled or shown may differ.
    void changed();
    // The key guess set Key and Minor.
    void keySet();

private:
    void deviationsDone(const Deviations::Results &done);
    void closeProgress();
    void keyGuessed(const std::shared_ptr<MusicStream> &music, bool found, int tonicPitchClass,
                    bool minor, double confidence);
    void stopGuessing();

    QWidget *window;
    Host host;
    Deviations running;
    QProgressDialog *progress = nullptr;
    bool canceled = false;
    std::thread guessing;
    std::atomic<bool> guessCanceled{false};
};

} // namespace quorval
