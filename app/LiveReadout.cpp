#include "app/LiveReadout.h"

#include "scale/Scale.h"
#include "streams/MusicStream.h"
#include "streams/PitchStream.h"
#include "streams/Quorval.h"

#include <QFontMetricsF>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace quorval {

namespace {

constexpr double kScaleCents = 50.0; // the needle's scale runs -50 .. +50

// The base font sized so that text fills box's height, or its width when that is narrower.
QFont fitted(const QFont &base, const QString &text, const QRectF &box)
{
    QFont font = base;
    font.setPixelSize(std::max(1, static_cast<int>(box.height())));
    const double width = QFontMetricsF(font).horizontalAdvance(text);
    if (width > box.width() && width > 0.0)
        font.setPixelSize(std::max(1, static_cast<int>(box.height() * box.width() / width)));
    return font;
}

} // namespace

LiveReadout::LiveReadout(QWidget *parent) : QWidget(parent)
{
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void LiveReadout::showPitch(double pitch, double goodness)
{
    showPitch(pitch, goodness, ColumnSettings::current());
}

void LiveReadout::showPitch(double pitch, double goodness, const ColumnSettings &settings)
{
    if (!(pitch > 0.0) || goodness < settings.goodnessThreshold) {
        clear();
        return;
    }
    const double deviation = settings.scale.deviation(pitch);
    // The line the deviation is measured from, named in written pitch as everywhere.
    note = settings.scale.noteNameWithOctave(settings.scale.nearestLine(pitch));
    centsValue = deviation * 100.0;
    const long rounded = std::lround(centsValue);
    centsLabel = rounded == 0 ? QStringLiteral("0") : QString::asprintf("%+ld", rounded);
    const Rgba c = traceColor(deviation, settings.tuning, goodness, settings.goodnessThreshold);
    colour = QColor::fromRgbF(c.r, c.g, c.b, c.a);
    update();
}

void LiveReadout::clear()
{
    if (isBlank())
        return;
    note.clear();
    centsLabel.clear();
    centsValue = 0.0;
    colour = QColor();
    update();
}

void LiveReadout::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF area = rect();
    painter.fillRect(area, Qt::black);
    const double h = area.height();
    const double w = area.width();

    // The scale along the bottom fifth: ticks every 10 cents, longer and labelled at 0 and +-50.
    const double scaleY = h * 0.86;
    const double left = w * 0.08;
    const double right = w * 0.92;
    const auto xOf = [&](double c) {
        return left + (right - left) * (std::clamp(c, -kScaleCents, kScaleCents) + kScaleCents) /
                          (2.0 * kScaleCents);
    };
    const QColor scaleColour(150, 150, 150);
    painter.setPen(QPen(scaleColour, std::max(1.0, h / 200.0)));
    painter.drawLine(QPointF(left, scaleY), QPointF(right, scaleY));
    QFont small = font();
    small.setPixelSize(std::max(8, static_cast<int>(h * 0.06)));
    painter.setFont(small);
    for (int c = -50; c <= 50; c += 10) {
        const double tick = (c % 50 == 0 ? 0.05 : 0.025) * h;
        painter.drawLine(QPointF(xOf(c), scaleY - tick), QPointF(xOf(c), scaleY));
        if (c % 50 == 0) {
            const QString label = c > 0 ? QStringLiteral("+%1").arg(c) : QString::number(c);
            painter.drawText(QRectF(xOf(c) - w * 0.1, scaleY + h * 0.01, w * 0.2, h * 0.08),
                             Qt::AlignHCenter | Qt::AlignTop, label);
        }
    }
    if (isBlank())
        return;

    painter.setPen(QPen(colour, std::max(2.0, w / 120.0), Qt::SolidLine, Qt::RoundCap));
    const double x = xOf(centsValue);
    painter.drawLine(QPointF(x, scaleY - h * 0.12), QPointF(x, scaleY + h * 0.01));

    painter.setPen(colour);
    const QRectF nameBox(w * 0.05, h * 0.02, w * 0.9, h * 0.5);
    painter.setFont(fitted(font(), note, nameBox));
    painter.drawText(nameBox, Qt::AlignCenter, note);
    const QRectF centsBox(w * 0.05, h * 0.52, w * 0.9, h * 0.2);
    painter.setFont(fitted(font(), centsLabel + QStringLiteral(" cents"), centsBox));
    painter.drawText(centsBox, Qt::AlignCenter, centsLabel + QStringLiteral(" cents"));
}

LiveReadoutFeed::LiveReadoutFeed(LiveReadout &readout,
                                 std::shared_ptr<const PlaybackState> playback, QObject *parent)
    : QObject(parent), readout(readout), playback(std::move(playback))
{
    timer.setInterval(kIntervalMs);
    connect(&timer, &QTimer::timeout, this, &LiveReadoutFeed::update);
}

void LiveReadoutFeed::follow(std::shared_ptr<MusicStream> stream)
{
    music = std::move(stream);
    if (music) {
        timer.start();
        update();
    } else {
        timer.stop();
        readout.clear();
    }
}

void LiveReadoutFeed::update()
{
    const std::shared_ptr<PitchStream> pitch = music ? music->pitchStream() : nullptr;
    if (!pitch) {
        readout.clear();
        return;
    }
    const double needle = playback->needleTime;
    struct Reading
    {
        std::int64_t index = -1;
        double pitch = 0.0;
        double goodness = 0.0;
    };
    const auto read = [&](bool newest, std::int64_t wanted) {
        return Quorval::dataQueue().sync([&] {
            Reading r;
            const std::int64_t first = pitch->minimumIndex_D();
            const std::int64_t end = pitch->maximumIndex_D();
            if (end <= first)
                return r;
            r.index = newest ? end - 1 : std::clamp(wanted, first, end - 1);
            r.pitch = pitch->valueAt_D(r.index);
            r.goodness = pitch->goodnessStream()->valueAt_D(r.index);
            return r;
        });
    };
    Reading r =
        read(playback->recording, static_cast<std::int64_t>(std::floor(needle / pitch->xScale)));
    if (r.index < 0) {
        readout.clear();
        return;
    }
    if (r.pitch == 0.0) {
        // Not calculated yet (the calculation trails a recording): measure it now.
        pitch->computePitch(r.index);
        r = read(false, r.index);
    }
    readout.showPitch(r.pitch, r.goodness);
}

} // namespace quorval
