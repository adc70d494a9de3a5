#include "app/LevelMeter.h"

#include <QPainter>
#include <QTimer>

#include <algorithm>
#include <cmath>

namespace quorval {

namespace {

constexpr int kClipWidth = 10;

} // namespace

LevelMeter::LevelMeter(Source source_, QWidget *parent)
    : QWidget(parent), source(std::move(source_)), frameTimer(new QTimer(this))
{
    setToolTip(tr("Input level: RMS bar, peak tick and figure in dBFS; red mark: clipping"));
    frameTimer->setInterval(kFrameMs);
    connect(frameTimer, &QTimer::timeout, this, [this] {
        levels = source();
        update();
    });
    setVisible(false);
}

double LevelMeter::toDb(float level)
{
    return level > 0.0f ? std::max(kFloorDb, 20.0 * std::log10(static_cast<double>(level)))
                        : kFloorDb;
}

void LevelMeter::setActive(bool active)
{
    if (active == frameTimer->isActive())
        return;
    if (active) {
        levels = source();
        frameTimer->start();
    } else {
        frameTimer->stop();
        levels = {};
    }
    setVisible(active);
}

bool LevelMeter::clipLit() const
{
    return levels.clippedAtMs >= 0 && Recorder::nowMs() - levels.clippedAtMs < kClipHoldMs;
}

void LevelMeter::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    const QRectF whole = rect();
    painter.fillRect(whole, Qt::black);
    const double scaleWidth = std::max(0.0, whole.width() - kClipWidth - 2);
    const auto xOf = [scaleWidth](double db) { return scaleWidth * (db - kFloorDb) / -kFloorDb; };

    const double rmsDb = toDb(levels.rms);
    const double peakDb = toDb(levels.peak);
    // Green, then yellow from -12 dBFS and red from -3: room left before the top.
    const QColor bar = peakDb >= -3.0    ? QColor(220, 40, 30)
                       : peakDb >= -12.0 ? QColor(230, 200, 40)
                                         : QColor(40, 190, 70);
    painter.fillRect(QRectF(0, 3, xOf(rmsDb), whole.height() - 6), bar);
    painter.fillRect(QRectF(xOf(peakDb) - 1, 1, 2, whole.height() - 2), Qt::white);
    painter.fillRect(QRectF(whole.width() - kClipWidth, 1, kClipWidth, whole.height() - 2),
                     clipLit() ? QColor(255, 0, 0) : QColor(60, 60, 60));

    painter.setPen(Qt::white);
    QFont font = painter.font();
    font.setPixelSize(std::max(8, static_cast<int>(whole.height()) - 8));
    painter.setFont(font);
    const QString figure =
        levels.peak > 0.0f ? QString::asprintf("%.1f dB", peakDb) : QStringLiteral("-inf dB");
    // At the right end, unless the peak tick stands there: then at the left, clear of it.
    const double figureWidth = painter.fontMetrics().horizontalAdvance(figure) + 4.0;
    const bool tickAtRight = xOf(peakDb) + 1.0 >= scaleWidth - figureWidth;
    painter.drawText(QRectF(2, 0, scaleWidth - 2, whole.height()),
                     (tickAtRight ? Qt::AlignLeft : Qt::AlignRight) | Qt::AlignVCenter, figure);
}

} // namespace quorval
