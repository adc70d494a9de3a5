#pragma once

#include "audio/Recorder.h"

#include <QWidget>

#include <functional>

class QTimer;

namespace quorval {

// The input's level beside the transport: the RMS as a bar and the peak as a tick on a scale
// from -60 to 0 dBFS, with the peak's figure; a sample at full scale lights the clip mark red
// for a second. Shown while the input is open, repainted at the display's frame rate from the
// recorder's figures, which it reads without locks. Main thread.
class LevelMeter : public QWidget
{
    Q_OBJECT

public:
    using Source = std::function<Recorder::Levels()>;
    explicit LevelMeter(Source source, QWidget *parent = nullptr);

    static constexpr double kFloorDb = -60.0;
    static constexpr std::int64_t kClipHoldMs = 1000;
    static constexpr int kFrameMs = 16;

    // 20 log10 of a level of full scale, not below kFloorDb.
    [[nodiscard]] static double toDb(float level);

    // Shows the meter and follows the source, or hides it.
    void setActive(bool active);
    // The figures the last paint showed.
    [[nodiscard]] const Recorder::Levels &shown() const { return levels; }
    [[nodiscard]] bool clipLit() const;

    [[nodiscard]] QSize sizeHint() const override { return {170, 20}; }
    // Narrower, the scale could no longer be read.
    [[nodiscard]] QSize minimumSizeHint() const override { return {kMinimumWidth, 16}; }
    static constexpr int kMinimumWidth = 100;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    Source source;
    QTimer *frameTimer;
    Recorder::Levels levels;
};

} // namespace quorval
