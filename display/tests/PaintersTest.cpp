#include "display/HeaderPainters.h"
#include "display/TracePainters.h"
#include "display/tests/Sounds.h"

#include <QImage>
#include <QPainter>

#include <gtest/gtest.h>

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

} // namespace
} // namespace quorval
