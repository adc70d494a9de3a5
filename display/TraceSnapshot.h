#pragma once

#include "streams/DataView.h"
#include "streams/DisplayColumnStream.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace quorval {

class DataStream;
class MusicStream;

// What the trace area asks the data queue for: the extent of the data it shows, and the
// columns of its column stream from `first` on (none for the spectrum view).
struct TraceRequest
{
    std::shared_ptr<DataStream> data;
    std::shared_ptr<DisplayColumnStream> stream;
    std::int64_t first = 0;
};

// What the data queue hands back for a redraw: copies, so that painting never touches a
// stream. generation tells which data change it was taken after.
struct TraceSnapshot
{
    std::uint64_t generation = 0;
    std::shared_ptr<DataStream> data; // whose extent this is
    std::optional<HExtent> extent;
    std::shared_ptr<DisplayColumnStream> stream;
    std::int64_t first = 0;
    DisplayColumnStream::Fill fill;
    // The spectrum view's segment.
    std::vector<double> spectrum; // dB per bin
    double hzPerBin = 0.0;
    std::vector<std::pair<double, double>> peaks; // hertz, dB
    double pitch = 0.0;                           // note number of the segment; <= 0 none
    double goodness = 0.0;
    std::int64_t segment = -1;
    double segmentTime = 0.0;

    // Takes what request asks for, and with spectrumOf the spectrum music holds, its segment's
    // pitch and the peaks the pitch search finds in it. Data queue.
    static TraceSnapshot take_D(const TraceRequest &request, std::uint64_t generation,
                                const std::shared_ptr<MusicStream> &spectrumOf);

    // The snapshot answers request for the data as of generation.
    [[nodiscard]] bool answers(const TraceRequest &request, std::uint64_t generation) const
    {
        return this->generation == generation && data == request.data && stream == request.stream &&
               first == request.first;
    }
};

} // namespace quorval
