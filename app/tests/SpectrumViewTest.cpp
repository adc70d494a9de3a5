#include "app/Transport.h"
#include "app/tests/WindowTest.h"
#include "display/DisplayView.h"
#include "display/TraceArea.h"

#include <QCoreApplication>
#include <QDir>

#include <chrono>

namespace quorval {
namespace {

// Pixels of the spectrum's fill (a light blue over black) in the lower half of the canvas,
// where an empty dB grid has only grey lines.
int spectrumPixels(const QImage &canvas)
{
    int count = 0;
    for (int y = canvas.height() / 2; y < canvas.height(); ++y)
        for (int x = 0; x < canvas.width(); ++x) {
            const QColor c = canvas.pixelColor(x, y);
            count += c.blue() > c.red() + 20 && c.blue() > 60;
        }
    return count;
}

// The spectrum view chosen by its keys once an opened sound has been analysed, as a player
// looks at it: it draws the segment at the needle, and follows the needle when it moves.
TEST_F(WindowTest, spectrumViewDrawsTheSegmentAtTheNeedleOfAnOpenedSound)
{
    ASSERT_TRUE(controller->musicStream()->waitUntilCalculated(std::chrono::seconds(60)));
    DisplayView *view = controller->displayView;
    type('v');
    type('s');
    ASSERT_EQ(view->shownViewType(), ViewType::Spectrum);
    QImage canvas;
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            canvas = view->grab().toImage();
            return spectrumPixels(canvas) > 500;
        },
        10000))
        << spectrumPixels(canvas);
    // Kept for a look: the whole trace area as the window shows it.
    const QString picture =
        QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("spectrum-view.png"));
    EXPECT_TRUE(controller->traceArea->grab().save(picture));
    EXPECT_TRUE(view->frame().spectrum.caption.startsWith(QStringLiteral("Segment at 0:00.00:")))
        << view->frame().spectrum.caption.toStdString();

    // The needle moved: the segment there is drawn.
    controller->transport->playhead().moveNeedle(3.0);
    WAIT_FOR(view->frame().spectrum.caption.startsWith(QStringLiteral("Segment at 0:02.9")) ||
                 view->frame().spectrum.caption.startsWith(QStringLiteral("Segment at 0:03.0")),
             10000);
    EXPECT_GT(spectrumPixels(view->grab().toImage()), 500);
}

} // namespace
} // namespace quorval
