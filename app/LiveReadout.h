#pragma once

#include "display/PlaybackState.h"
#include "streams/DisplayColumnStream.h"

#include <QColor>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QWidget>

#include <memory>

namespace quorval {

class MusicStream;

// The note being played, large enough to read from a music stand: its name with octave, its
// deviation from the nearest shown line in cents as a number and as a needle on a -50..+50
// scale, coloured as the trace colours that pitch. Blank when there is no sure pitch (none, or
// goodness below "Quality threshold"). The type grows with the pane. Main thread only.
class LiveReadout : public QWidget
{
    Q_OBJECT

public:
    explicit LiveReadout(QWidget *parent = nullptr);

    // Shows pitch (note number, 69 = A4; <= 0 none) measured with goodness, against the scale,
    // "Tuning" and "Quality threshold" of the current options.
    void showPitch(double pitch, double goodness);
    // The same against settings given.
    void showPitch(double pitch, double goodness, const ColumnSettings &settings);
    void clear();

    // What is shown: empty texts when blank.
    [[nodiscard]] const QString &noteText() const { return note; }
    [[nodiscard]] const QString &centsText() const { return centsLabel; }
    [[nodiscard]] double cents() const { return centsValue; }
    [[nodiscard]] const QColor &color() const { return colour; }
    [[nodiscard]] bool isBlank() const { return note.isEmpty(); }

    [[nodiscard]] QSize sizeHint() const override { return {320, 240}; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QString note;
    QString centsLabel;
    double centsValue = 0.0;
    QColor colour;
};

// Keeps a LiveReadout on the sound being recorded or played: every kIntervalMs it shows the
// newest whole segment of the music while the playback records, else the segment at its
// needle. A segment not yet calculated is computed then. Main thread only.
class LiveReadoutFeed : public QObject
{
    Q_OBJECT

public:
    static constexpr int kIntervalMs = 50;

    LiveReadoutFeed(LiveReadout &readout, std::shared_ptr<const PlaybackState> playback,
                    QObject *parent = nullptr);

    // Follows music from now on; nothing stops following and blanks the read-out.
    void follow(std::shared_ptr<MusicStream> music);
    // One reading, as the timer takes it.
    void update();

private:
    LiveReadout &readout;
    std::shared_ptr<const PlaybackState> playback;
    std::shared_ptr<MusicStream> music;
    QTimer timer;
};

} // namespace quorval
