#pragma once

#include "display/DisplayView.h"

#include <QObject>
#include <QString>

#include <memory>

class QCheckBox;
class QKeyEvent;
class QLabel;
class QPushButton;
class QTimer;
class QToolButton;

namespace quorval {

class AppDelegate;
class ColumnHeaderView;
class MainView;
class ReferenceTone;
class MusicStream;
class ParallelAnalysis;
class RowHeaderView;
class TraceArea;
class Transport;
class TransportBar;
class WavStream;

// The main window's content: the trace area with keyboard and ruler, the transport bar, the key
// and A-frequency labels, the tuning box, the key and options buttons and the six zoom buttons.
// Turns keys into commands and keeps every control, tooltip and the window title in step. The
// transport's state lives in its Transport.
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

    // Shows music (may be null): hands its sound to the transport (which stops and prepares it)
    // and refreshes.
    void setMusicStream(std::shared_ptr<MusicStream> music);
    [[nodiscard]] std::shared_ptr<MusicStream> musicStream() const { return music; }
    [[nodiscard]] std::shared_ptr<WavStream> wavStream() const;

    // Button actions: each runs after the button's state changed, as a click does.
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
    Transport *transport;
    TransportBar *transportBar;
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

signals:
    // The sound's state shown in the title changed (modified, length while recording).
    void soundChanged();

private:
    std::unique_ptr<ReferenceTone> tone;
    QTimer *toneTimer;           // follows the needle while the tone sounds
    double lastTonePitch = -1.0; // the last pitch found at the needle

    void buildLayout();
    // The window's keys as shortcuts of the whole window.
    void addKeyActions();
    // A key of the window pressed: clears the prompt and acts, after a pending prefix.
    void keyCommand(QChar c);
    void clearPrompt();
    void showNeedleAt(double seconds);
    bool keyAction(const QString &prefix, QChar c);

    std::shared_ptr<MusicStream> music;
    std::unique_ptr<ParallelAnalysis> parallel; // helpers analysing `music` on the other cores
};

} // namespace quorval
