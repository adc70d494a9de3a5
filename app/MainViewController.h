#pragma once

#include "display/DisplayView.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>

class QAction;
class QCheckBox;
class QLabel;
class QPushButton;

namespace quorval {

class KeyPrompt;
class OptionsMenu;
class MainView;
class MusicStream;
class ParallelAnalysis;
class ToneControl;
class ToolRow;
class TraceArea;
class Transport;
class TransportBar;
class WavStream;
class ZoomControls;

// The main window's content: the trace area with keyboard and ruler, the transport bar, the key
// and A-frequency labels, the tuning box, the key and options buttons and the zoom controls.
// Every key of the content is a window-wide action, shared with its button, so it works
// whatever in the window has the focus; keeps every control, tooltip and the window title in
// step. The transport's state lives in its Transport.
//
// Main thread only.
class MainViewController : public QObject
{
    Q_OBJECT

public:
    // Builds the controls and their actions inside mainView; optionsMenu opens the options
    // dialog for the key and options buttons and outlives the controller.
    MainViewController(MainView *mainView, OptionsMenu &optionsMenu);
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

    // Stops playing and recording (the buttons go off).
    void stopTransport();
    // Selects the whole sound; not while playing or recording. Answers whether it did.
    bool selectAll();
    // Selects [start, end) seconds, kept within the sound, with the needle at its start; not
    // while playing or recording. Answers whether it did.
    bool select(double start, double end);

    // Brings every control, tooltip and the title up to the program's state, and redraws.
    void refreshControls();
    // The options changed (the view type among them): the data is drawn anew.
    void optionsChanged();

    MainView *mainView;
    TraceArea *traceArea;
    DisplayView *displayView;
    OptionsMenu &optionsMenu;
    Transport *transport;
    TransportBar *transportBar;
    // The reference tone of the tone button and the t key.
    ToneControl *tone;
    // The transport and the other controls, side by side or stacked as the width allows.
    ToolRow *toolRow;
    QLabel *keyLabel;
    QLabel *aFreqLabel;
    QCheckBox *tuningCheckbox;
    QPushButton *keyButton;
    QPushButton *optionsButton;
    ZoomControls *zoom;
    // The keys' actions that buttons share.
    QAction *keyAction;
    QAction *optionsAction;
    // Warnings, the tone's note and the f and v prefixes' choices over the trace.
    KeyPrompt *prompt;

protected:
    // Ends the held reference tone when t is let go.
    bool eventFilter(QObject *watched, QEvent *event) override;

signals:
    // The sound's state shown in the title changed (modified, length while recording).
    void soundChanged();
    // The selection changed, by the mouse or a command; start < 0 when there is none.
    void selectionChanged(double start, double end);

private:
    void buildLayout();
    // The window's keys as actions of the whole window.
    void addKeyActions();
    // An action of the window with its keys, running command.
    QAction *addAction(const QString &text, const QList<QKeySequence> &keys,
                       const std::function<void()> &command);
    void showNeedleAt(double seconds);

    std::shared_ptr<MusicStream> music;
    std::unique_ptr<ParallelAnalysis> parallel; // helpers analysing `music` on the other cores
};

} // namespace quorval
