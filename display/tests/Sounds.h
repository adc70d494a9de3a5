#pragma once

#include "display/DisplayView.h"
#include "options/Parameters.h"
#include "streams/Quorval.h"
#include "streams/tests/OpenedSound.h"

#include <QColor>
#include <QImage>

#include <memory>

namespace quorval::test {

// An analysed tone as the open sound, and the view type to draw it in; both undone when it
// goes.
class ShownSound
{
public:
    ShownSound(const std::vector<double> &samples, const QString &viewType)
        : viewTypeSet(Parameters::shared().setViewType(viewType)), sound(samples)
    {
        EXPECT_TRUE(viewTypeSet);
        Quorval::setMusicStream(sound.music);
        Quorval::needleTime = -1.0;
    }
    ~ShownSound()
    {
        Quorval::setVisibleSegmentSource(nullptr);
        Quorval::setMusicStream(nullptr);
        Quorval::playing = false;
        Quorval::needleTime = 0.0;
        (void)Parameters::shared().setViewType(QStringLiteral("Composite"));
    }
    ShownSound(const ShownSound &) = delete;
    ShownSound &operator=(const ShownSound &) = delete;

    MusicStream &music() { return *sound.music; }

private:
    // Set before the sound is made, so that its calculation sees the view type from the start.
    bool viewTypeSet;
    OpenedSound sound;
};

// The pixel of image at (x, y) in points, whatever its device pixel ratio.
inline QColor pixelAt(const QImage &image, double x, double y)
{
    const double ratio = image.devicePixelRatio();
    return image.pixelColor(static_cast<int>(x * ratio), static_cast<int>(y * ratio));
}

// Searches rows y - reach .. y + reach (points) of column x for a pixel that satisfies wanted.
template <class Test>
bool anyPixelNear(const QImage &image, double x, double y, double reach, Test wanted)
{
    const double ratio = image.devicePixelRatio();
    for (int row = static_cast<int>((y - reach) * ratio);
         row <= static_cast<int>((y + reach) * ratio); ++row)
        if (row >= 0 && row < image.height() &&
            wanted(image.pixelColor(static_cast<int>(x * ratio), row)))
            return true;
    return false;
}

} // namespace quorval::test
