#pragma once

#include "display/DisplayView.h"
#include "display/TraceArea.h"
#include "streams/Quorval.h"
#include "streams/tests/OpenedSound.h"

#include <QColor>
#include <QImage>

#include <memory>

namespace quorval::test {

// An analysed tone and the view type to draw it in, for the trace areas a test shows it in.
class ShownSound
{
public:
    ShownSound(const std::vector<double> &samples, ViewType type) : type(type), sound(samples) {}
    ~ShownSound() { Quorval::setVisibleSegmentSource(nullptr); }
    ShownSound(const ShownSound &) = delete;
    ShownSound &operator=(const ShownSound &) = delete;

    MusicStream &music() { return *sound.music; }
    // Hands the sound, the view type and the playback to area's trace.
    void showIn(TraceArea &area) const
    {
        area.displayView->setSound(sound.music);
        area.displayView->setViewType(type);
        area.displayView->setPlayback(playback);
    }

    // Idle, with no needle, until a test says otherwise.
    std::shared_ptr<PlaybackState> playback = std::make_shared<PlaybackState>();

private:
    ViewType type;
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
