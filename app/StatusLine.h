#pragma once

#include <QObject>
#include <QString>

#include <memory>

class QLabel;
class QProgressBar;
class QStatusBar;
class QTimer;

namespace quorval {

class MusicStream;

// The status bar's read-outs: what the pointer is over, the selection, whether the sound is
// still being analysed, and the sound's name and length, looked at again every 250 ms once
// started. Main thread only.
class StatusLine : public QObject
{
    Q_OBJECT

public:
    // How long the status bar says where the scale's options of a sound came from.
    static constexpr int kScaleTakenMs = 10000;

    // Fills bar, which outlives the line.
    explicit StatusLine(QStatusBar *bar);

    // The sound shown; the line keeps no sound alive.
    void setMusic(const std::shared_ptr<MusicStream> &music);
    void showHover(const QString &text);
    // start < 0 (or an empty stretch): no selection.
    void showSelection(double start, double end);
    // Where the scale's options of a sound opened came from, for a while.
    void showScaleTaken(const QString &what);
    // The sound's name, length and analysis indicator, now and every 250 ms from then on.
    void refresh();
    void start();

    QLabel *soundLabel;
    QLabel *hoverLabel;
    QLabel *selectionLabel;
    QProgressBar *analysisBar;

private:
    QStatusBar *bar;
    QTimer *timer;
    std::weak_ptr<MusicStream> music;
};

} // namespace quorval
