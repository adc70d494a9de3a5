#pragma once

#include "audio/PlayerView.h"
#include "display/DisplayView.h"

#include <QObject>
#include <QString>

#include <memory>

class QCheckBox;
class QComboBox;
class QKeyEvent;
class QLabel;
class QPushButton;
class QTimer;
class QToolButton;

namespace quorval {

class AppDelegate;
class ColumnHeaderView;
class MainView;
class LevelMeter;
class ReferenceTone;
class MusicStream;
class ParallelAnalysis;
class Player;
class Recorder;
class RowHeaderView;
class TraceArea;
class WavStream;

// The main window's content: the trace area with keyboard and ruler, the transport (rewind,
// fast forward, play, pause, record, loop), the one-touch hint, the key and A-frequency labels,
// the tuning box, the key and options buttons and the six zoom buttons. Turns presses and keys
// into player and recorder actions and keeps every control, tooltip and the window title in
// step.
//
// Transport states (play, pause, record buttons): idle (off, off, off); playing (on, off, off);
// play paused (on, on, off); recording (off, off, on); record paused (off, on, on). Play and
// record exclude each other.
//
// One touch ("One touch play/record" on): turning play or record on prepares it (the paused
// state) instead of starting, and space (the pause button) then starts and stops. Opening a
// sound prepares play and a new recording prepares record, so one key does everything; when
// playback ends by itself, play is prepared again.
//
// Main thread only.
class MainViewController : public QObject
{
    Q_OBJECT

public:
    // Builds the controls inside mainView. appDelegate runs the File and View commands of the
    // "f" and "v" keys, the options dialog and the modified-sound check; not null.
    MainViewController(MainView *mainView, AppDelegate *appDelegate);
    ~MainViewController() override;

    // Shows music (may be null): stops playing and recording, puts the needle at its start, and
    // refreshes. With one touch on, prepares record for a sound that is empty, play otherwise.
    void setMusicStream(std::shared_ptr<MusicStream> music);
    [[nodiscard]] std::shared_ptr<MusicStream> musicStream() const { return music; }
    [[nodiscard]] std::shared_ptr<WavStream> wavStream() const;

    // Button actions: each runs after the button's state changed, as a click does.
    void rewindButtonPushed();
    void fastForwardButtonPushed();
    void playButtonPushed();
    void pauseButtonPushed();
    void recordButtonPushed();
    void loopButtonPushed();
    void tuningBoxChecked();
    void optionsButtonPushed();
    void keyButtonPushed();
    void hZoomIn();
    void hZoomOut();
    void hToggle();
    void vZoomIn();
    void vZoomOut();
    void vToggle();

    // Handles a key press of the window; false when it is none of the window's keys.
    bool keyDown(const QKeyEvent &event);
    // Key releases: the end of a held "t".
    bool keyUp(const QKeyEvent &event);

    // The reference tone: the grid note nearest the pitch at the needle (else the last pitch
    // heard, else the tonic) in the key, temperament, tuning and "A Frequency" in force.
    void startReferenceTone();
    void stopReferenceTone();
    [[nodiscard]] double referenceFrequency();
    [[nodiscard]] bool referenceToneSounding() const;

    // One practice speed slower or faster ("[" and "]").
    void stepSpeed(int step);
    [[nodiscard]] double playingSpeed() const;

    // Sets the display's prompt and clears it a second later.
    void showPrompt(const QString &message);

    // Stops playing and recording (the buttons go off).
    void stopTransport();
    // Selects the whole sound; not while playing or recording. Answers whether it did.
    bool selectAll();

    // Brings every control, tooltip and the title up to the program's state, and redraws.
    void refreshControls();

    // Whether the window may close: asks about an unsaved sound. When it may, the sound's
    // modified mark is cleared.
    bool windowShouldClose();

    MainView *mainView;
    TraceArea *scrollView;
    DisplayView *displayView;
    ColumnHeaderView *columnHeaderView;
    RowHeaderView *rowHeaderView;
    AppDelegate *appDelegate;
    QToolButton *rewindButton;
    QToolButton *fastForwardButton;
    QToolButton *playButton;
    QToolButton *pauseButton;
    QToolButton *recordButton;
    QToolButton *loopButton;
    QLabel *oneTouchLabel;
    QLabel *keyLabel;
    QLabel *aFreqLabel;
    QCheckBox *tuningCheckbox;
    QPushButton *keyButton;
    QPushButton *optionsButton;
    QToolButton *hZoomInButton;
    QToolButton *hZoomOutButton;
    QToolButton *hToggleButton;
    QToolButton *vZoomInButton;
    QToolButton *vZoomOutButton;
    QToolButton *vToggleButton;
    QString prepKey;
    QTimer *promptTimer;
    std::unique_ptr<Recorder> recorder;
    LevelMeter *levelMeter; // shown while recording
    QToolButton *toneButton;
    QComboBox *speedBox; // practice speed: 1, 0.75 or 0.5 at the same pitch

signals:
    // The sound's state shown in the title changed (modified, length while recording).
    void soundChanged();

private:
    std::unique_ptr<ReferenceTone> tone;
    QTimer *toneTimer;           // follows the needle while the tone sounds
    double lastTonePitch = -1.0; // the last pitch found at the needle

    // The player's view of the display: the needle is Quorval::needleTime, the selection a
    // copy the main thread keeps current.
    class NeedleView : public SharedPlayerView
    {
    public:
        NeedleView() : SharedPlayerView([] { DisplayView::requestRedraw(); }) {}
        [[nodiscard]] double playMark() const override;
        void setPlayMark(double seconds) override;
    };

    void buildLayout();
    void startPlayback();
    void stopPlayback();
    void startRecording();
    void stopRecording();
    void playbackFinished();
    void recordingEnded();
    void prepare(bool forRecord);
    void followRecording();
    void clearPrompt();
    // The sound's first and last time, and its frame count, read on the data queue.
    struct Extent
    {
        double lowest = 0.0;
        double highest = 0.0;
        std::int64_t frames = 0;
    };
    [[nodiscard]] Extent soundExtent() const;
    [[nodiscard]] bool canRecordInto() const;
    [[nodiscard]] bool oneTouch() const;
    void moveNeedle(double timeSeconds);
    bool keyAction(const QString &prefix, QChar c);

    std::shared_ptr<MusicStream> music;
    std::unique_ptr<ParallelAnalysis> parallel; // helpers analysing `music` on the other cores
    NeedleView needleView;
    std::unique_ptr<Player> player;
    QTimer *recordTimer;
};

} // namespace quorval
