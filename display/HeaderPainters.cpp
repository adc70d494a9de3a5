#include "display/HeaderPainters.h"

#include "display/TracePainters.h"
#include "streams/Axis.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

namespace quorval {

namespace {

constexpr double kLabelPoints = 11.0;
constexpr double kLabelHeight = 14.0; // points per label line
constexpr double kLabelGap = 8.0;     // least room between two ruler labels, points
constexpr double kEdgeMargin = 2.0;   // room at either end of the ruler, points

QString rulerText(double value, double inc, bool spectrum)
{
    return QString::fromStdString(spectrum ? axisLabel(value, inc)
                                           : rulerLabel(std::max(value, 0.0), inc).text);
}

} // namespace

std::vector<QRectF> Keyboard::paint(QPainter &painter, const Geometry &g, QSizeF strip,
                                    Labels labels, const WrittenNames &written)
{
    std::vector<QRectF> drawn;
    const double width = strip.width();
    const double height = strip.height();
    // How much lower than the canvas the strip reaches.
    const double shiftUp = std::max(0.0, height - g.canvasHeight);
    auto onCanvas = [&](double up) { return up >= 0.0 && up < g.canvasHeight; };
    // A rectangle given by its lower-left corner in heights above the strip's bottom.
    auto rectUp = [&](double x, double bottom, double w, double h) {
        return QRectF(x, height - bottom - h, w, h);
    };

    painter.fillRect(rectUp(0.0, shiftUp, width, g.canvasHeight), Qt::white);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    if (onCanvas(g.up(dotNote))) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(kDarkGreen);
        painter.drawEllipse(QRectF(0.7 * width - 2.0, g.y(dotNote) - 4.0, 8.0, 8.0));
    }

    const bool numbers = labels == Labels::Numbers;
    const double labelX = std::trunc(0.7 * width - 4.0) - (numbers ? 2.0 : 0.0);
    painter.setFont(labelFont(11));
    const double blackWidth = 0.6 * width - 3.0;
    const double topY = g.topValue();
    for (auto base = static_cast<std::int64_t>(12 * std::trunc((g.bottomY - 1.5) / 12.0) + 2);
         base < static_cast<std::int64_t>(std::trunc(topY)); base += 12) {
        const auto b = static_cast<double>(base);
        for (std::size_t i = 0; i < 7; ++i) {
            const double low = b + whiteKeySpacings[i];
            const double high = b + whiteKeySpacings[i + 1];
            if (onCanvas(g.up(high))) {
                // The key's top edge, and its rounded right end when its bottom is in view.
                QPainterPath outline;
                const double yHigh = g.y(high);
                const double yLow = g.y(low);
                outline.moveTo(0.0, yHigh);
                outline.lineTo(width - 6.0, yHigh);
                if (g.up(low) + shiftUp >= 0.0) {
                    outline.arcTo(QRectF(width - 10.0, yHigh, 8.0, 8.0), 90.0, -90.0);
                    outline.lineTo(width - 2.0, yLow - 4.0);
                    outline.arcTo(QRectF(width - 10.0, yLow - 8.0, 8.0, 8.0), 0.0, -90.0);
                }
                painter.strokePath(outline, QPen(Qt::black, 1.0));
            }
            const double middle = (g.up(low) + g.up(high)) / 2.0;
            // The A carrying the dot goes unlabelled.
            if (labels == Labels::None || (base == 62 && i == 4) || !onCanvas(middle))
                continue;
            const std::int64_t note = base + whiteKeyNoteIncrements[i];
            const QString &writtenName = written[static_cast<std::size_t>((note % 12 + 12) % 12)];
            const QString text = numbers ? QString::number(note)
                                 : !writtenName.isEmpty()
                                     ? writtenName
                                     : QString::fromLatin1(whiteKeyLabels[(i + 3) % 7]);
            // Keys run up the strip: a label that would touch the one below it is left out (its
            // key keeps its lines), so that short keys do not smear their letters together.
            const QRectF rect(labelX, g.flip(middle) - 7.0, width - labelX, kLabelHeight);
            if (!drawn.empty() && rect.bottom() + 1.0 > drawn.back().top())
                continue;
            painter.setPen(Qt::black);
            painter.drawText(rect, Qt::AlignLeft | Qt::AlignVCenter, text);
            drawn.push_back(rect);
        }
        painter.setPen(Qt::NoPen);
        painter.setBrush(Qt::black);
        for (const double spacing : blackKeySpacings) {
            const double centre = b + spacing;
            const double top = g.up(centre + blackKeyHeightHalf) + shiftUp;
            const double bottom = g.up(centre - blackKeyHeightHalf) + shiftUp;
            if (!onCanvas((top + bottom) / 2.0 - shiftUp))
                continue;
            const double keyHeight = top - bottom;
            painter.fillRect(rectUp(0.0, bottom, blackWidth - 4.0, keyHeight), Qt::black);
            painter.fillRect(rectUp(0.0, bottom + 4.0, blackWidth, keyHeight - 8.0), Qt::black);
            painter.drawEllipse(rectUp(blackWidth - 8.0, bottom, 8.0, 8.0));
            painter.drawEllipse(rectUp(blackWidth - 8.0, top - 8.0, 8.0, 8.0));
        }
    }
    painter.restore();
    return drawn;
}

void paintValueLabels(QPainter &painter, const Geometry &g, QSizeF strip, double step)
{
    if (!(step > 0.0))
        return;
    painter.setFont(labelFont(kLabelPoints));
    painter.setPen(Qt::white);
    const double topY = g.topValue();
    for (auto i = static_cast<std::int64_t>(std::trunc(g.bottomY / step));; ++i) {
        const double value = static_cast<double>(i) * step;
        if (value > topY)
            break;
        const double up = g.up(value);
        if (up < 0.0 || up > g.canvasHeight)
            continue;
        const double y = g.flip(up);
        painter.drawLine(QLineF(strip.width() - 4.0, y, strip.width(), y));
        // Kept inside the strip at the canvas's top and bottom edges.
        const double top = std::clamp(y - 7.0, 0.0, g.canvasHeight - kLabelHeight);
        painter.drawText(QRectF(0.0, top, strip.width() - 6.0, kLabelHeight),
                         Qt::AlignRight | Qt::AlignVCenter,
                         QString::fromStdString(axisLabel(value, step)));
    }
}

double Ruler::lineSpacing(const Geometry &g, double gridPoints, bool functionOfTime, bool spectrum)
{
    double inc = gridSize(g.pixelWidth * gridPoints, functionOfTime);
    const QFontMetricsF metrics(labelFont(kLabelPoints));
    const double right = g.rightValue();
    // A wider spacing can change the labels' decimals: a few rounds settle it.
    for (int round = 0; round < 4 && inc > 0.0; ++round) {
        double widest = 0.0;
        for (const double value :
             {std::ceil(g.leftTime / inc) * inc, std::floor(right / inc) * inc, right})
            widest = std::max(widest, labelWidth(metrics, rulerText(value, inc, spectrum)));
        const double needed = (widest + kLabelGap) * g.pixelWidth;
        if (needed <= inc)
            break;
        inc = gridSize(needed, functionOfTime);
    }
    return inc;
}

std::vector<QRectF> Ruler::paint(QPainter &painter, const Geometry &g, QSizeF size, double spacing,
                                 bool spectrum)
{
    std::vector<QRectF> rects;
    if (!(spacing > 0.0) || !(g.pixelWidth > 0.0))
        return rects;
    const QFont font = labelFont(kLabelPoints);
    const QFontMetricsF metrics(font);
    painter.setFont(font);
    painter.setPen(Qt::white);
    // Labels hang 4 points below the ruler's top edge.
    const double top = 4.0;
    const double right = g.rightValue();
    for (auto i = static_cast<std::int64_t>(std::ceil(g.leftTime / spacing));; ++i) {
        const double t = static_cast<double>(i) * spacing;
        if (t >= right)
            break;
        const QString text = rulerText(t, spacing, spectrum);
        const double width = labelWidth(metrics, text);
        const double centred = g.x(t) - 0.5 * width;
        // A label at either edge is moved in to stay whole, and left out when it would then
        // come nearer its neighbour than the labels between stand (or the ruler is narrower
        // than it): the first ones of a short take keep the same room as the rest.
        const double x =
            std::max(kEdgeMargin, std::min(centred, size.width() - width - kEdgeMargin));
        if (x + width > size.width() - kEdgeMargin ||
            (!rects.empty() && x < rects.back().right() + kLabelGap))
            continue;
        const QRectF rect(x, top, width, kLabelHeight);
        painter.drawText(rect, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextDontClip, text);
        rects.push_back(rect);
    }
    return rects;
}

} // namespace quorval
