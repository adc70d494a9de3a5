#pragma once

#include <QWidget>

#include <functional>
#include <optional>

class QComboBox;
class QIcon;
class QLabel;
class QToolButton;

namespace quorval {

class LevelMeter;
class Transport;

// A tool button as the window's bars have them: never taking the keyboard's focus.
QToolButton *makeToolButton(QWidget *parent, const QIcon &icon, const QString &text,
                            const QString &toolTip, bool checkable);

// The transport's controls: rewind, fast forward, play, pause, record, loop, the practice
// speed, the reference tone button, the input level while recording and the one-touch hint.
// Shows the transport's state and forwards clicks to it; the buttons hold no state of their own
// past a refresh.
class TransportBar : public QWidget
{
    Q_OBJECT

public:
    // transport outlives the bar.
    TransportBar(Transport &transport, QWidget *parent = nullptr);

    // Brings every control up to the transport's state.
    void refresh();
    // One practice speed slower (+1) or faster (-1) in the list, which runs fastest first.
    void stepSpeed(int step);

    QToolButton *rewindButton;
    QToolButton *fastForwardButton;
    QToolButton *playButton;
    QToolButton *pauseButton;
    QToolButton *recordButton;
    QToolButton *loopButton;
    QComboBox *speedBox;
    QToolButton *toneButton;
    LevelMeter *levelMeter; // shown while recording
    QLabel *oneTouchLabel;

signals:
    // The needle jumped to the sound's start or end (seconds), by rewind or fast forward.
    void needleJumped(double seconds);
    // A click of any control changed the transport.
    void changed();

private:
    // A click on button runs command, then says the transport changed.
    void forward(QToolButton *button, const std::function<void()> &command);
    void jumped(std::optional<double> seconds);

    Transport &transport;
};

} // namespace quorval
