#include "display/TracePainters.h"

#include <QFontDatabase>
#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

namespace quorval {

namespace {

QColor toColor(const Rgba &c)
{
    return QColor::fromRgbF(c.r, c.g, c.b, c.a);
}

} // namespace

QFont labelFont(double points)
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    // Sizes are in the canvas's points, which are logical pixels here.
    font.setPixelSize(static_cast<int>(points + 0.5));
    return font;
}

double labelWidth(const QFontMetricsF &metrics, const QString &text)
{
    // Some glyphs reach past their advance.
    return std::max(metrics.horizontalAdvance(text), metrics.boundingRect(text).width());
}

double crisp(double points)
{
    return std::floor(points) + 0.5;
}

void paintAcrossLines(QPainter &painter, const Geometry &g, double spacing)
{
    if (!(spacing > 0.0))
        return;
    painter.setPen(QPen(kGrey, 1.0));
    const double right = g.rightValue();
    for (auto i = static_cast<std::int64_t>(std::ceil(g.leftTime / spacing));; ++i) {
        const double t = static_cast<double>(i) * spacing;
        if (t >= right)
            break;
        const double x = crisp(g.x(t));
        painter.drawLine(QLineF(x, 0.0, x, g.canvasHeight));
    }
}

void paintValueLines(QPainter &painter, const Geometry &g, double step)
{
    if (!(step > 0.0))
        return;
    painter.setPen(QPen(kGrey, 1.0));
    const double top = g.topValue();
    // The first may lie below the canvas, where it is not seen.
    for (auto i = static_cast<std::int64_t>(std::trunc(g.bottomY / step));; ++i) {
        const double value = static_cast<double>(i) * step;
        if (value > top)
            break;
        const double y = crisp(g.y(value));
        painter.drawLine(QLineF(0.0, y, g.canvasWidth, y));
    }
}

void paintNoteLines(QPainter &painter, const Geometry &g, const std::vector<GridLine> &lines)
{
    for (const GridLine &line : lines) {
        const double level = 0.75 - 0.1 * static_cast<double>(std::clamp<qint64>(line.rank, 0, 5));
        painter.setPen(QPen(grey(level), 1.0));
        const double y = crisp(g.y(line.pitch));
        painter.drawLine(QLineF(0.0, y, g.canvasWidth, y));
    }
}

std::vector<QRectF> paintNoteNames(QPainter &painter, const Geometry &g,
                                   const std::vector<GridLine> &lines)
{
    constexpr double kLeft = 2.0; // from the canvas's left edge, points
    constexpr double kPad = 2.0;  // backing beyond the text on either side, points
    constexpr double kHeight = 13.0;
    if (g.canvasHeight < kHeight)
        return {};
    const QFont font = labelFont(11);
    const QFontMetricsF metrics(font);
    std::vector<const GridLine *> order;
    for (const GridLine &line : lines)
        order.push_back(&line);
    std::stable_sort(order.begin(), order.end(), [](const GridLine *a, const GridLine *b) {
        return a->rank != b->rank ? a->rank < b->rank : a->pitch < b->pitch;
    });
    std::vector<QRectF> placed;
    std::vector<const QString *> names;
    for (const GridLine *line : order) {
        const double y = g.y(line->pitch);
        if (!(y >= 0.0 && y <= g.canvasHeight))
            continue;
        const double width = labelWidth(metrics, line->name);
        // Centred on its line, kept inside the canvas at its top and bottom edges.
        const double top = std::clamp(y - 0.5 * kHeight, 0.0, g.canvasHeight - kHeight);
        const QRectF rect(kLeft, top, width + 2.0 * kPad, kHeight);
        // One point of air between two backings.
        const QRectF air = rect.adjusted(0.0, -1.0, 0.0, 1.0);
        if (std::any_of(placed.begin(), placed.end(),
                        [&](const QRectF &other) { return other.intersects(air); }))
            continue;
        placed.push_back(rect);
        names.push_back(&line->name);
    }
    painter.save();
    painter.setFont(font);
    painter.setRenderHint(QPainter::Antialiasing);
    for (std::size_t i = 0; i < placed.size(); ++i) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor::fromRgbF(0.0, 0.0, 0.0, 0.75));
        painter.drawRoundedRect(placed[i], 3.0, 3.0);
        painter.setPen(Qt::yellow);
        painter.drawText(placed[i], Qt::AlignCenter | Qt::TextDontClip, *names[i]);
    }
    painter.restore();
    return placed;
}

void paintSelection(QPainter &painter, const Geometry &g, double start, double end)
{
    if (!(g.pixelWidth > 0.0) || !(end > start))
        return;
    const double x0 = g.x(start);
    painter.fillRect(QRectF(x0, 0.0, g.x(end) - x0, g.canvasHeight), kDarkGrey);
}

void paintNeedle(QPainter &painter, const Geometry &g, double timeSeconds, const QColor &color)
{
    if (!(g.pixelWidth > 0.0))
        return;
    const double x = g.x(timeSeconds);
    if (!(x >= 0.0 && x < g.canvasWidth))
        return;
    painter.setPen(QPen(color, 1.0));
    painter.drawLine(QLineF(crisp(x), 0.0, crisp(x), g.canvasHeight - 1.0));
}

void paintPrompt(QPainter &painter, const QString &message)
{
    if (message.isEmpty())
        return;
    painter.setFont(labelFont(14));
    painter.setPen(Qt::white);
    painter.drawText(QPointF(20.0, 30.0), message);
}

void paintColumns(QPainter &painter, const Geometry &g, const ColumnTrace &trace)
{
    const double range = g.topValue() - g.bottomY;
    if (!trace.columns || g.canvasHeight <= 0.0 || range <= 0.0)
        return;
    const ViewType type = trace.viewType;
    const double zeroUp = g.up(0.0);
    double previousTop = -1.0;
    double previousBottom = -1.0;
    auto stroke = [&](double x, double upLow, double upHigh, const QColor &color) {
        painter.fillRect(QRectF(x - 1.0, g.flip(upHigh), 2.0, upHigh - upLow), color);
    };
    for (const ColumnValues &c : *trace.columns) {
        const double x = static_cast<double>(c.index - trace.first);
        if (x < 0.0 || x >= g.canvasWidth)
            continue;
        switch (type) {
        case ViewType::Composite: {
            if (!(c.displayPitch > 0.0) || !c.color || !(c.rmsVolume > 0.0) ||
                !(trace.volumeScale > 0.0))
                break;
            const double y = g.up(c.displayPitch);
            if (y < 0.0 || y >= g.canvasHeight)
                break;
            const double half = std::max(c.rmsVolume / trace.volumeScale * trace.thickness * 0.5,
                                         trace.minTraceHeight);
            stroke(x, std::max(y - half, 0.0), y + half, toColor(*c.color));
            break;
        }
        case ViewType::Pitch:
        case ViewType::Quality: {
            const double value = type == ViewType::Pitch ? c.displayPitch : c.goodness;
            if (!(value > 0.0))
                break;
            const double y = g.up(value);
            stroke(x, y, y + 1.0, trace.volumeColor);
            break;
        }
        case ViewType::RMSAmplitude:
        case ViewType::Amplitude: {
            if (c.rmsVolume < 0.0) {
                previousTop = previousBottom = -1.0;
                break;
            }
            double top = 0.0;
            double bottom = 0.0;
            if (type == ViewType::RMSAmplitude) {
                top = c.rmsVolume / g.pixelHeight;
                bottom = -top;
            } else {
                top = c.maxVolume / g.pixelHeight + 1.0;
                bottom = c.minVolume / g.pixelHeight;
            }
            // Neighbouring columns always touch.
            stroke(x, zeroUp + std::min(previousTop, bottom),
                   zeroUp + std::max(top, previousBottom), trace.volumeColor);
            previousTop = top;
            previousBottom = bottom;
            break;
        }
        case ViewType::Spectrum:
            break;
        }
    }
}

void paintSpectrum(QPainter &painter, const Geometry &g, const SpectrumTrace &trace)
{
    if (!trace.spectrum || trace.spectrum->empty() || trace.hzPerBin <= 0.0 || g.pixelWidth <= 0.0)
        return;
    const std::vector<double> &spectrum = *trace.spectrum;
    const double right = g.rightValue();
    const auto count = static_cast<std::int64_t>(spectrum.size());
    const auto firstBin = std::clamp<std::int64_t>(
        static_cast<std::int64_t>(std::floor(g.leftTime / trace.hzPerBin)) - 1, 0, count - 1);
    const auto lastBin = std::clamp<std::int64_t>(
        static_cast<std::int64_t>(std::ceil(right / trace.hzPerBin)) + 1, 0, count - 1);
    QPainterPath curve;
    const double floorY = g.canvasHeight;
    curve.moveTo(g.x(static_cast<double>(firstBin) * trace.hzPerBin), floorY);
    for (std::int64_t i = firstBin; i <= lastBin; ++i)
        curve.lineTo(g.x(static_cast<double>(i) * trace.hzPerBin),
                     std::min(g.y(spectrum[static_cast<std::size_t>(i)]), floorY));
    curve.lineTo(g.x(static_cast<double>(lastBin) * trace.hzPerBin), floorY);
    curve.closeSubpath();
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillPath(curve, kSpectrumFill);
    painter.strokePath(curve, QPen(trace.volumeColor, 1.0));

    // The harmonics of the pitch the segment got, ticked from the top.
    const double f0 = trace.fundamentalHz;
    painter.setFont(labelFont(9));
    if (f0 > 0.0) {
        painter.setPen(QPen(QColor::fromRgbF(0.3, 0.9, 0.3), 1.0, Qt::DashLine));
        // Numbers only where they have room.
        const bool numbered = f0 / g.pixelWidth >= 14.0;
        for (int k = 1; k * f0 < right && k <= 64; ++k) {
            const double x = g.x(k * f0);
            if (x < 0.0)
                continue;
            painter.drawLine(QLineF(x, 12.0, x, g.canvasHeight));
            if (numbered)
                painter.drawText(QPointF(x - 3.0, 10.0), QString::number(k));
        }
    }
    // The peaks the search found.
    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::yellow);
    if (trace.peaks)
        for (const auto &[hz, db] : *trace.peaks) {
            const double x = g.x(hz);
            const double y = g.y(db);
            if (x < 0.0 || x >= g.canvasWidth)
                continue;
            const QPointF marker[3] = {{x, y - 1.0}, {x - 4.0, y - 8.0}, {x + 4.0, y - 8.0}};
            painter.drawPolygon(marker, 3);
        }
    painter.restore();

    if (trace.caption.isEmpty())
        return;
    // Below the harmonic numbers, on a backing of its own so the curve does not cross it.
    painter.setFont(labelFont(11));
    const double textWidth = painter.fontMetrics().horizontalAdvance(trace.caption) + 8.0;
    const QRectF box(g.canvasWidth - textWidth - 4.0, 16.0, textWidth, 16.0);
    painter.fillRect(box, QColor::fromRgbF(0.0, 0.0, 0.0, 0.7));
    painter.setPen(Qt::white);
    painter.drawText(box, Qt::AlignCenter, trace.caption);
}

} // namespace quorval
