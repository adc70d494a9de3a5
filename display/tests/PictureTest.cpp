#include "display/ColumnHeaderView.h"
#include "display/HeaderPainters.h"
#include "display/RowHeaderView.h"
#include "display/TraceArea.h"
#include "display/tests/Sounds.h"
#include "options/Parameters.h"
#include "streams/FFTStream.h"
#include "streams/MusicStream.h"
#include "streams/tests/Tones.h"

#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace quorval {
namespace {

using test::anyPixelNear;
using test::pixelAt;
using test::ShownSound;
using test::toneAt;

constexpr QSizeF kTrace(400.0, 300.0);

QImage pictureOf(ShownSound &shown, double from, double to, double scale)
{
    shown.music().timeView->leftTime = from;
    shown.music().timeView->timeWidth = to - from;
    TraceArea area;
    shown.showIn(area);
    QImage image = area.picture(kTrace, scale);
    EXPECT_EQ(image.size(), (area.pictureSize(kTrace) * scale).toSize());
    return image;
}

struct Offsets
{
    double left = 0.0; // keyboard width
    double top = 0.0;  // ruler height
};

Offsets offsets()
{
    TraceArea area;
    return {static_cast<double>(area.rowHeaderView->width()),
            static_cast<double>(area.columnHeaderView->height())};
}

// The picture's y of a note on the composite view's present band.
double yOfNote(const MusicStream &music, double note)
{
    const DataView &view = *music.compositeView;
    return offsets().top + kTrace.height() * (view.topY - note) / (view.topY - view.bottomY);
}

bool nearWhite(const QColor &c)
{
    return c.red() > 215 && c.green() > 215 && c.blue() > 215;
}
bool redTinted(const QColor &c)
{
    return c.red() > 200 && c.green() < c.red() - 60 && c.blue() < c.red() - 60;
}
bool blueTinted(const QColor &c)
{
    return c.blue() > 200 && c.red() < c.blue() - 60 && c.green() < c.blue() - 60;
}

TEST(Picture, compositeTraceSitsOnItsNoteColouredByItsDeviationAtBothScales)
{
    struct Case
    {
        double note;
        bool (*colour)(const QColor &);
        const char *name;
    };
    const Case cases[] = {
        {69.0, nearWhite, "in tune"},
        {69.3, redTinted, "30 cents sharp"},
        {68.7, blueTinted, "30 cents flat"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        ShownSound shown(toneAt(c.note, 2.0), ViewType::Composite);
        for (const double scale : {1.0, 2.0}) {
            SCOPED_TRACE(scale);
            const QImage image = pictureOf(shown, 0.5, 1.5, scale);
            ASSERT_FALSE(image.isNull());
            const double x = offsets().left + kTrace.width() / 2.0;
            const double y = yOfNote(shown.music(), c.note);
            EXPECT_TRUE(anyPixelNear(image, x, y, 2.0, c.colour));
            // Nothing of that colour two semitones away.
            EXPECT_FALSE(
                anyPixelNear(image, x, yOfNote(shown.music(), c.note + 2.0), 2.0, c.colour));
        }
    }
}

TEST(Picture, keyboardCarriesItsDotOnTheAAboveD62Only)
{
    ShownSound shown(toneAt(69.0, 1.0), ViewType::Composite);
    const QImage image = pictureOf(shown, 0.0, 1.0, 1.0);
    const double dotX = 0.7 * offsets().left - 2.0 + 4.0;
    auto darkGreen = [](const QColor &c) {
        return c.green() > 100 && c.green() < 160 && c.red() < 40 && c.blue() < 40;
    };
    const double dotNote =
        62.0 + (Keyboard::whiteKeySpacings[4] + Keyboard::whiteKeySpacings[5]) / 2.0;
    EXPECT_TRUE(darkGreen(pixelAt(image, dotX, yOfNote(shown.music(), dotNote))));
    EXPECT_TRUE(nearWhite(pixelAt(image, dotX - 8.0, yOfNote(shown.music(), dotNote))));
    // The A an octave lower is a plain white key.
    EXPECT_FALSE(anyPixelNear(image, dotX, yOfNote(shown.music(), dotNote - 12.0), 3.0, darkGreen));

    // Key labels: the E above D 62 carries its name, unless labelling is "None".
    const double eMiddle =
        62.0 + (Keyboard::whiteKeySpacings[1] + Keyboard::whiteKeySpacings[2]) / 2.0;
    auto inkBeside = [&](const QImage &picture) {
        int ink = 0;
        const double y = yOfNote(shown.music(), eMiddle);
        for (double x = 0.7 * offsets().left - 6.0; x < offsets().left - 8.0; x += 0.5)
            for (double dy = -4.0; dy <= 4.0; dy += 0.5)
                ink += pixelAt(picture, x, y + dy).lightness() < 100;
        return ink;
    };
    EXPECT_GT(inkBeside(image), 5);
    Parameters &options = Parameters::shared();
    ASSERT_TRUE(options.labelPianoKeys.setValue(QStringLiteral("None")));
    const QImage unlabelled = pictureOf(shown, 0.0, 1.0, 1.0);
    ASSERT_TRUE(options.labelPianoKeys.setValue(QStringLiteral("Letters")));
    EXPECT_EQ(inkBeside(unlabelled), 0);
}

TEST(Picture, rulerCentresHalfSecondLabelsOnTheirLines)
{
    ShownSound shown(toneAt(69.0, 2.5), ViewType::Composite);
    // 2 s over 400 points: 50 points are a quarter second, so lines stand every half second.
    const QImage image = pictureOf(shown, 0.0, 2.0, 1.0);
    const Offsets o = offsets();
    auto textColumnsNear = [&](double x) {
        double sum = 0.0;
        int count = 0;
        for (int px = static_cast<int>(x - 30.0); px <= static_cast<int>(x + 30.0); ++px)
            for (int py = 0; py < static_cast<int>(o.top); ++py)
                if (image.pixelColor(px, py).lightness() > 200) {
                    sum += px;
                    ++count;
                }
        return std::make_pair(count, count > 0 ? sum / count : 0.0);
    };
    for (const double t : {0.5, 1.0, 1.5}) {
        const double lineX = o.left + t / 2.0 * kTrace.width();
        const auto [count, centre] = textColumnsNear(lineX);
        EXPECT_GT(count, 20) << t;
        EXPECT_NEAR(centre, lineX, 6.0) << t;
        // The grid line the label names is drawn in the canvas below it.
        EXPECT_EQ(pixelAt(image, lineX, o.top + 10.0).red(),
                  pixelAt(image, lineX, o.top + 10.0).blue());
    }
    // Between the labels the ruler is bare.
    for (int px = static_cast<int>(o.left + 143.0); px < static_cast<int>(o.left + 157.0); ++px)
        for (int py = 0; py < static_cast<int>(o.top); ++py)
            ASSERT_LT(image.pixelColor(px, py).lightness(), 200) << px << "," << py;
}

TEST(Picture, rulerLabelsNeitherCollideNorRunOffEitherEnd)
{
    ShownSound shown(toneAt(69.0, 1.0), ViewType::Composite);
    const Offsets o = offsets();
    struct Span
    {
        double from;
        double to;
    };
    // Half-second lines 50 points apart, with labels of a decimal; a stretch starting off the
    // grid; whole seconds; the hour's turn.
    for (const Span span :
         {Span{0.0, 4.0}, Span{0.37, 4.13}, Span{0.0, 14.0}, Span{3595.0, 3605.0}}) {
        SCOPED_TRACE(span.from);
        MusicStream &music = shown.music();
        music.timeView->leftTime = span.from;
        music.timeView->timeWidth = span.to - span.from;
        TraceArea area;
        shown.showIn(area);
        const QImage image = area.picture(kTrace, 1.0);
        ASSERT_FALSE(image.isNull());
        const std::vector<QRectF> &rects = area.columnHeaderView->labelRects;
        ASSERT_GE(rects.size(), 3U);
        for (std::size_t i = 0; i < rects.size(); ++i) {
            EXPECT_GE(rects[i].left(), 0.0) << i;
            EXPECT_LE(rects[i].right(), kTrace.width()) << i;
            if (i > 0) {
                EXPECT_GE(rects[i].left(), rects[i - 1].right() + 2.0) << i;
            }
        }
        // The rectangles hold all the ink: no text reaches past them.
        std::vector<int> inkPerLabel(rects.size(), 0);
        for (int px = 0; px < static_cast<int>(kTrace.width()); ++px)
            for (int py = 0; py < static_cast<int>(o.top); ++py) {
                if (image.pixelColor(static_cast<int>(o.left) + px, py).lightness() <= 200)
                    continue;
                const QPointF point(px + 0.5, py + 0.5);
                const auto inside = std::find_if(rects.begin(), rects.end(), [&](const QRectF &r) {
                    return r.adjusted(-1.0, -1.0, 1.0, 1.0).contains(point);
                });
                ASSERT_NE(inside, rects.end()) << px << "," << py;
                ++inkPerLabel[static_cast<std::size_t>(inside - rects.begin())];
            }
        for (std::size_t i = 0; i < rects.size(); ++i)
            EXPECT_GT(inkPerLabel[i], 10) << i;
    }
}

TEST(Picture, wholeViewOfAFinishedSoundEndsAtItsEnd)
{
    Parameters &options = Parameters::shared();
    const double preferred = options.preferredDisplayLength.value();
    ASSERT_TRUE(options.preferredDisplayLength.setValue(1.0));
    {
        ShownSound shown(toneAt(69.0, 2.0), ViewType::Composite);
        HView &h = *shown.music().timeView;
        h.timeWidth = 0.0; // not yet shown: the first redraw shows the whole
        TraceArea area;
        shown.showIn(area);
        ASSERT_FALSE(area.picture(kTrace, 1.0).isNull());
        const HExtent e = area.displayView->extent();
        ASSERT_GT(e.span(), 1.5);
        EXPECT_DOUBLE_EQ(h.timeWidth, e.span());
        EXPECT_DOUBLE_EQ(h.leftTime, e.lowestX);

        // Zoomed in and scrolled to the end, the view stops at the end; zoomed out past the
        // whole, it is the whole again.
        const HExtent fetched = area.displayView->refreshExtent();
        h.hZoom(4.0, fetched, -1.0);
        h.setLeftTime(e.highestX, fetched, false);
        EXPECT_DOUBLE_EQ(h.leftTime + h.timeWidth, e.highestX);
        h.hZoom(0.125, fetched, -1.0);
        EXPECT_DOUBLE_EQ(h.timeWidth, e.span());
        HView::needsScrollerUpdate = false;
    }
    ASSERT_TRUE(options.preferredDisplayLength.setValue(preferred));
}

TEST(Picture, everyViewDrawsItsTraceWhereItsAxisPutsIt)
{
    const std::vector<double> samples = toneAt(69.0, 2.0);
    const Offsets o = offsets();
    const double x = o.left + kTrace.width() / 2.0;
    auto white = [](const QColor &c) { return c.lightness() > 240; };
    auto valueY = [&](const DataView &view, double value) {
        return o.top + kTrace.height() * (view.topY - value) / (view.topY - view.bottomY);
    };
    {
        ShownSound shown(samples, ViewType::Pitch);
        const QImage image = pictureOf(shown, 0.5, 1.5, 2.0);
        EXPECT_TRUE(anyPixelNear(image, x, valueY(*shown.music().pitchView, 69.0), 2.0, white));
        EXPECT_FALSE(anyPixelNear(image, x, valueY(*shown.music().pitchView, 75.0), 2.0, white));
    }
    for (const ViewType type : {ViewType::Amplitude, ViewType::RMSAmplitude}) {
        SCOPED_TRACE(letterOf(type));
        ShownSound shown(samples, type);
        const QImage image = pictureOf(shown, 0.5, 1.5, 1.0);
        const DataView &view = *shown.music().wavView;
        // The tone's loudness reaches out from the zero line; nothing at full scale.
        EXPECT_TRUE(white(pixelAt(image, x, valueY(view, 0.0) - 3.0)));
        EXPECT_TRUE(white(pixelAt(image, x, valueY(view, 0.0) + 3.0)));
        EXPECT_FALSE(white(pixelAt(image, x, valueY(view, 0.9 * view.maxY))));
    }
    {
        ShownSound shown(samples, ViewType::Quality);
        const QImage image = pictureOf(shown, 0.5, 1.5, 1.0);
        int traced = 0;
        for (int px = 0; px < static_cast<int>(kTrace.width()); ++px)
            for (int py = 0; py < static_cast<int>(kTrace.height()); ++py)
                traced += white(
                    image.pixelColor(static_cast<int>(o.left) + px, static_cast<int>(o.top) + py));
        EXPECT_GT(traced, 100);
    }
}

TEST(Picture, spectrumMarksThePeaksAndHarmonicsOfTheNote)
{
    ShownSound shown(toneAt(57.0, 2.0), ViewType::Spectrum); // 220 Hz
    MusicStream &music = shown.music();
    shown.playback->needleTime = 1.0;
    TraceArea area;
    shown.showIn(area);
    // The first picture asks for the needle's segment, which the calculation then lays in.
    ASSERT_FALSE(area.picture(kTrace, 1.0).isNull());
    ASSERT_TRUE(QTest::qWaitFor([&music] { return music.fftPitchIndex >= 0; }, 10000));
    const QImage image = area.picture(kTrace, 1.0);
    ASSERT_FALSE(image.isNull());
    const Offsets o = offsets();
    const HView &frequency = *music.frequencyView;
    auto xOf = [&](double hz) { return o.left + (hz - frequency.leftTime) / frequency.pixelWidth; };
    auto yellow = [](const QColor &c) { return c.red() > 200 && c.green() > 200 && c.blue() < 80; };
    auto green = [](const QColor &c) { return c.green() > 180 && c.red() < 120 && c.blue() < 120; };
    for (const double hz : {220.0, 440.0, 660.0}) {
        SCOPED_TRACE(hz);
        bool peak = false;
        bool tick = false;
        for (double dx = -2.0; dx <= 2.0; dx += 1.0) {
            peak = peak || anyPixelNear(image, xOf(hz) + dx, o.top + kTrace.height() / 2.0,
                                        kTrace.height() / 2.0 - 1.0, yellow);
            tick = tick || anyPixelNear(image, xOf(hz) + dx, o.top + kTrace.height() / 2.0,
                                        kTrace.height() / 2.0 - 1.0, green);
        }
        EXPECT_TRUE(peak);
        EXPECT_TRUE(tick);
    }
    // No harmonic tick between the first two harmonics.
    EXPECT_FALSE(anyPixelNear(image, xOf(330.0), o.top + kTrace.height() / 2.0,
                              kTrace.height() / 2.0 - 1.0, green));
}

TEST(Picture, writesPngAndSvgAndRefusesAFolder)
{
    ShownSound shown(toneAt(69.0, 1.0), ViewType::Composite);
    QTemporaryDir dir;
    TraceArea area;
    shown.showIn(area);
    const QString png = dir.filePath(QStringLiteral("trace.png"));
    const QString svg = dir.filePath(QStringLiteral("trace.svg"));
    ASSERT_TRUE(area.writePicture(png, kTrace, 2.0));
    ASSERT_TRUE(area.writePicture(svg, kTrace, 1.0));
    EXPECT_EQ(QImage(png).size(), (area.pictureSize(kTrace) * 2.0).toSize());
    QFile svgFile(svg);
    ASSERT_TRUE(svgFile.open(QIODevice::ReadOnly));
    EXPECT_TRUE(svgFile.readAll().contains("<svg"));
    EXPECT_FALSE(area.writePicture(dir.path(), kTrace, 1.0));
}

} // namespace
} // namespace quorval
