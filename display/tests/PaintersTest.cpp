#include "display/HeaderPainters.h"
#include "display/TracePainters.h"
#include "display/tests/Sounds.h"

#include <QImage>
#include <QPainter>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace quorval {
namespace {

using test::anyPixelNear;
using test::pixelAt;

// A canvas 200 x 100 points showing 10..20 s across and notes 60..70 up.
Geometry notesGeometry()
{
    Geometry g;
    g.leftTime = 10.0;
    g.pixelWidth = 0.05;
    g.bottomY = 60.0;
    g.pixelHeight = 0.1;
    g.canvasWidth = 200.0;
    g.canvasHeight = 100.0;
    return g;
}

QImage blank(QSizeF size, double ratio = 1.0)
{
    QImage image(static_cast<int>(size.width() * ratio), static_cast<int>(size.height() * ratio),
                 QImage::Format_RGB32);
    image.setDevicePixelRatio(ratio);
    image.fill(Qt::black);
    return image;
}

bool lit(const QColor &c)
{
    return c.lightness() > 200;
}

// No two rectangles of a painter's answer share a point, and each lies within bounds.
void expectApartWithin(const std::vector<QRectF> &rects, const QRectF &bounds)
{
    for (std::size_t i = 0; i < rects.size(); ++i) {
        EXPECT_TRUE(bounds.contains(rects[i])) << rects[i].x() << "," << rects[i].y();
        for (std::size_t j = i + 1; j < rects.size(); ++j)
            EXPECT_FALSE(rects[i].intersects(rects[j]))
                << rects[i].y() << " and " << rects[j].y() << ", x " << rects[j].x();
    }
}

TEST(TracePainters, columnsStandAtTheirValueCountedUpFromTheBottom)
{
    const Geometry g = notesGeometry();
    std::vector<ColumnValues> columns(3);
    for (std::size_t i = 0; i < columns.size(); ++i) {
        columns[i].index = 1000 + static_cast<std::int64_t>(i) * 50;
        columns[i].displayPitch = 62.0 + 4.0 * static_cast<double>(i); // 62, 66, 70 (the top)
        columns[i].goodness = 5.0;
        columns[i].rmsVolume = 1000.0;
        columns[i].maxVolume = 2.0;
        columns[i].minVolume = -1.0;
        columns[i].color = Rgba{1.0, 0.0, 0.0, 1.0};
    }
    ColumnTrace trace;
    trace.columns = &columns;
    trace.first = 1000;
    trace.volumeScale = 1000.0;
    trace.thickness = 4.0;

    for (const double ratio : {1.0, 2.0}) {
        SCOPED_TRACE(ratio);
        trace.viewType = ViewType::Composite;
        QImage image = blank({g.canvasWidth, g.canvasHeight}, ratio);
        {
            QPainter painter(&image);
            paintColumns(painter, g, trace);
        }
        auto red = [](const QColor &c) { return c.red() > 200 && c.green() < 50; };
        // 62 lies a fifth of the way up: 80 points down from the top, not 20.
        EXPECT_TRUE(anyPixelNear(image, 0.0, 80.0, 1.5, red));
        EXPECT_FALSE(anyPixelNear(image, 0.0, 20.0, 5.0, red));
        EXPECT_TRUE(anyPixelNear(image, 50.0, 40.0, 1.5, red));
        // A column whose value lies on the top edge is above the canvas: not drawn.
        EXPECT_FALSE(anyPixelNear(image, 100.0, 2.0, 2.0, red));
    }

    // The pitch view's one-point stroke at the same heights, in the trace's colour.
    trace.viewType = ViewType::Pitch;
    QImage pitch = blank({g.canvasWidth, g.canvasHeight});
    {
        QPainter painter(&pitch);
        paintColumns(painter, g, trace);
    }
    EXPECT_TRUE(anyPixelNear(pitch, 0.0, 80.0, 1.0, lit));
    EXPECT_FALSE(anyPixelNear(pitch, 0.0, 20.0, 5.0, lit));

    // Amplitude about a zero line in the middle: from +2 (20 points up, and one more) down to
    // -1 (10 points down).
    Geometry wave = g;
    wave.bottomY = -5.0;
    wave.pixelHeight = 0.1;
    trace.viewType = ViewType::Amplitude;
    QImage amplitude = blank({g.canvasWidth, g.canvasHeight});
    {
        QPainter painter(&amplitude);
        paintColumns(painter, wave, trace);
    }
    const double zeroY = wave.y(0.0);
    EXPECT_TRUE(lit(pixelAt(amplitude, 0.0, zeroY - 15.0)));
    EXPECT_TRUE(lit(pixelAt(amplitude, 0.0, zeroY + 8.0)));
    EXPECT_FALSE(lit(pixelAt(amplitude, 0.0, zeroY - 25.0)));
    EXPECT_FALSE(lit(pixelAt(amplitude, 0.0, zeroY + 15.0)));
}

TEST(TracePainters, spectrumFillsUnderItsCurveAndMarksPeaksAndHarmonics)
{
    // 0..2000 Hz across 200 points, -100..0 dB up 100 points; a 10 Hz bin, a point wide; a
    // partial at 400 Hz and its octave, five bins wide each, the floor elsewhere.
    Geometry g;
    g.leftTime = 0.0;
    g.pixelWidth = 10.0;
    g.bottomY = -100.0;
    g.pixelHeight = 1.0;
    g.canvasWidth = 200.0;
    g.canvasHeight = 100.0;
    std::vector<double> spectrum(201, -100.0);
    for (const std::size_t bin : {38U, 39U, 40U, 41U, 42U}) {
        spectrum[bin] = -20.0;
        spectrum[bin + 40] = -50.0;
    }
    const std::vector<std::pair<double, double>> peaks = {{400.0, -20.0}, {800.0, -50.0}};
    SpectrumTrace trace;
    trace.spectrum = &spectrum;
    trace.hzPerBin = 10.0;
    trace.peaks = &peaks;
    // Off the bins' grid, so that a harmonic's tick covers whole pixels.
    trace.fundamentalHz = 402.5;
    QImage image = blank({g.canvasWidth, g.canvasHeight});
    {
        QPainter painter(&image);
        paintSpectrum(painter, g, trace);
    }
    auto filled = [](const QColor &c) { return c.blue() > c.red() + 20 && c.blue() > 60; };
    auto yellow = [](const QColor &c) { return c.red() > 200 && c.green() > 200 && c.blue() < 80; };
    auto green = [](const QColor &c) { return c.green() > 180 && c.red() < 120 && c.blue() < 120; };
    // Under the 400 Hz partial (-20 dB: 20 points from the top), beside its harmonic's tick,
    // the curve is filled down to the floor; above it nothing; between the partials nothing.
    EXPECT_TRUE(filled(pixelAt(image, 38.0, 50.0)));
    EXPECT_TRUE(filled(pixelAt(image, 38.0, 95.0)));
    EXPECT_FALSE(anyPixelNear(image, 38.0, 8.0, 6.0, filled));
    EXPECT_FALSE(filled(pixelAt(image, 60.0, 50.0)));
    // The peak's mark hangs just above its top; the harmonics' ticks stand at 400 and 800 Hz.
    EXPECT_TRUE(anyPixelNear(image, 40.0, 15.0, 4.0, yellow));
    EXPECT_TRUE(anyPixelNear(image, 80.0, 45.0, 4.0, yellow));
    EXPECT_TRUE(anyPixelNear(image, 80.0, 20.0, 8.0, green));
    EXPECT_FALSE(anyPixelNear(image, 60.0, 50.0, 35.0, green));
}

TEST(HeaderPainters, rulerAndKeyboardMeetTheCanvasLinesOfTheSameGeometry)
{
    const Geometry g = notesGeometry();
    const double spacing = Ruler::lineSpacing(g, 50.0, true, false);
    ASSERT_GT(spacing, 0.0);
    // The lines down the canvas, and the ruler's labels over the same geometry.
    QImage canvas = blank({g.canvasWidth, g.canvasHeight});
    QImage ruler = blank({g.canvasWidth, 24.0});
    std::vector<QRectF> labels;
    {
        QPainter canvasPainter(&canvas);
        paintAcrossLines(canvasPainter, g, spacing);
        QPainter rulerPainter(&ruler);
        labels = Ruler::paint(rulerPainter, g, {g.canvasWidth, 24.0}, spacing, false);
    }
    ASSERT_GE(labels.size(), 2U);
    int checked = 0;
    for (const QRectF &label : labels) {
        // A label moved in from either edge no longer stands over its line.
        if (label.left() < 3.0 || label.right() > g.canvasWidth - 3.0)
            continue;
        const double lineX = std::floor(label.center().x());
        bool line = false;
        for (double dx = -2.0; dx <= 2.0; dx += 1.0)
            line = line || pixelAt(canvas, lineX + dx, 50.0).lightness() > 100;
        EXPECT_TRUE(line) << label.center().x();
        ++checked;
    }
    EXPECT_GE(checked, 2);

    // The keyboard's dot sits at the canvas's height of its note, also when the strip runs on
    // below the canvas; a geometry moved up a semitone moves it down by ten points.
    for (const double stripHeight : {100.0, 130.0}) {
        for (const double bottom : {60.0, 61.0}) {
            SCOPED_TRACE(stripHeight + bottom);
            Geometry moved = g;
            moved.bottomY = bottom;
            QImage strip = blank({60.0, stripHeight});
            {
                QPainter painter(&strip);
                Keyboard::paint(painter, moved, {60.0, stripHeight}, Keyboard::Labels::None);
            }
            auto darkGreen = [](const QColor &c) {
                return c.green() > 100 && c.green() < 160 && c.red() < 40 && c.blue() < 40;
            };
            const double dotY = moved.y(Keyboard::dotNote);
            EXPECT_TRUE(darkGreen(pixelAt(strip, 0.7 * 60.0 + 2.0, dotY)));
            EXPECT_FALSE(anyPixelNear(strip, 0.7 * 60.0 + 2.0, dotY + 10.0, 3.0, darkGreen));
            EXPECT_FALSE(anyPixelNear(strip, 0.7 * 60.0 + 2.0, dotY - 10.0, 3.0, darkGreen));
        }
    }
}

// Note names stand in a narrow margin at the left edge, over the trace, apart from each other
// however closely the lines run; the tonic's name is the one kept when names would touch.
TEST(TracePainters, noteNamesStayInTheLeftMarginApartAndOverTheTrace)
{
    std::vector<GridLine> lines;
    for (int n = 40; n <= 90; ++n)
        lines.push_back({static_cast<double>(n), n % 12 == 2 ? 0 : 1 + n % 5,
                         n % 12 == 2 ? QStringLiteral("D") : QStringLiteral("F♯-14")});
    // A trace across the whole canvas at the height of a tonic, D 62.
    std::vector<ColumnValues> columns(200);
    for (std::size_t i = 0; i < columns.size(); ++i) {
        columns[i] = ColumnValues{};
        columns[i].index = static_cast<std::int64_t>(i);
        columns[i].displayPitch = 62.0;
        columns[i].goodness = 5.0;
        columns[i].rmsVolume = 1000.0;
        columns[i].color = Rgba{1.0, 1.0, 1.0, 1.0};
    }
    ColumnTrace trace;
    trace.columns = &columns;
    trace.volumeScale = 1000.0;
    trace.thickness = 12.0;
    auto yellow = [](const QColor &c) { return c.red() > 150 && c.green() > 150 && c.blue() < 90; };
    for (const double semitonesPerPoint : {0.01, 0.05, 0.08, 0.12, 0.3, 1.0}) {
        for (const double ratio : {1.0, 2.0}) {
            SCOPED_TRACE(semitonesPerPoint * ratio);
            Geometry g = notesGeometry();
            g.pixelHeight = semitonesPerPoint;
            g.bottomY = 62.0 - 0.5 * g.canvasHeight * semitonesPerPoint;
            trace.first = 0;
            QImage image = blank({g.canvasWidth, g.canvasHeight}, ratio);
            std::vector<QRectF> names;
            {
                QPainter painter(&image);
                paintNoteLines(painter, g, lines);
                paintColumns(painter, g, trace);
                names = paintNoteNames(painter, g, lines);
            }
            ASSERT_FALSE(names.empty());
            expectApartWithin(names, QRectF(0.0, 0.0, 45.0, g.canvasHeight));
            // The lowest tonic in view keeps its name, on its line, readable over the trace.
            double tonic = 50.0;
            while (g.y(tonic) > g.canvasHeight)
                tonic += 12.0;
            const double tonicY = g.y(tonic);
            EXPECT_TRUE(std::any_of(names.begin(), names.end(), [&](const QRectF &r) {
                return r.top() <= tonicY && r.bottom() >= tonicY;
            }));
            EXPECT_TRUE(anyPixelNear(image, 8.0, tonicY, 5.0, yellow));
            // Nothing of a name beyond the margin.
            for (double x = 50.0; x < g.canvasWidth; x += 3.0)
                for (double y = 1.0; y < g.canvasHeight; y += 3.0)
                    ASSERT_FALSE(yellow(pixelAt(image, x, y))) << x << "," << y;
        }
    }
}

// The keyboard leaves out the letters that would touch, at any height and at 2x, and keeps
// every one where the keys are tall enough.
TEST(HeaderPainters, keyboardLabelsNeverTouchAndStayWhereTheKeysAreTall)
{
    for (const double semitonesPerPoint : {0.05, 0.1, 0.12, 0.15, 0.2, 0.3, 0.5, 0.9, 1.5}) {
        for (const double ratio : {1.0, 2.0}) {
            for (const auto labels : {Keyboard::Labels::Letters, Keyboard::Labels::Numbers}) {
                SCOPED_TRACE(semitonesPerPoint * ratio);
                Geometry g = notesGeometry();
                g.canvasHeight = 180.0;
                g.pixelHeight = semitonesPerPoint;
                g.bottomY = 64.0 - 90.0 * semitonesPerPoint;
                QImage strip = blank({60.0, g.canvasHeight}, ratio);
                std::vector<QRectF> drawn;
                {
                    QPainter painter(&strip);
                    drawn = Keyboard::paint(painter, g, {60.0, g.canvasHeight}, labels);
                }
                expectApartWithin(drawn, QRectF(0.0, -7.0, 60.0, g.canvasHeight + 14.0));
                // A white key is 12/7 of a semitone high: from 16 points up, none is left out.
                const double keyPoints = 12.0 / 7.0 / semitonesPerPoint;
                int middles = 0;
                for (int base = 2; base < 130; base += 12)
                    for (std::size_t i = 0; i < 7; ++i) {
                        const double middle = base + (Keyboard::whiteKeySpacings[i] +
                                                      Keyboard::whiteKeySpacings[i + 1]) /
                                                         2.0;
                        const double up = g.up(middle);
                        middles += up >= 0.0 && up < g.canvasHeight && !(base == 62 && i == 4);
                    }
                if (keyPoints >= 16.0)
                    EXPECT_EQ(static_cast<int>(drawn.size()), middles);
                else
                    EXPECT_GE(drawn.size(), 1U);
            }
        }
    }
}

// A take's ruler, from its first fraction of a second to minutes, keeps the same room between
// every two labels, the ones moved in at either end too, and never runs off its strip.
TEST(HeaderPainters, rulerLabelsKeepTheirRoomAtEveryLengthOfATake)
{
    for (const double width : {240.0, 700.0}) {
        for (double seconds = 0.02; seconds < 400.0; seconds *= 1.17) {
            SCOPED_TRACE(width * 1000.0 + seconds);
            Geometry g = notesGeometry();
            g.leftTime = 0.0;
            g.canvasWidth = width;
            g.pixelWidth = seconds / width;
            const double spacing = Ruler::lineSpacing(g, 50.0, true, false);
            QImage ruler = blank({width, 24.0});
            std::vector<QRectF> labels;
            {
                QPainter painter(&ruler);
                labels = Ruler::paint(painter, g, {width, 24.0}, spacing, false);
            }
            ASSERT_FALSE(labels.empty());
            for (std::size_t i = 1; i < labels.size(); ++i)
                EXPECT_GE(labels[i].left() - labels[i - 1].right(), 8.0) << i;
            expectApartWithin(labels, QRectF(0.0, 0.0, width, 24.0));
        }
    }
}

} // namespace
} // namespace quorval
