#include "display/TraceSnapshot.h"

#include "analysis/PeakDataSetOC.h"
#include "streams/FFTStream.h"
#include "streams/MusicStream.h"
#include "streams/PitchStream.h"

namespace quorval {

TraceSnapshot TraceSnapshot::take_D(const TraceRequest &request, std::uint64_t generation,
                                    const std::shared_ptr<MusicStream> &spectrumOf)
{
    TraceSnapshot s;
    s.generation = generation;
    s.data = request.data;
    s.stream = request.stream;
    s.first = request.first;
    if (request.data)
        s.extent = HExtent{request.data->minimumX_D(), request.data->maximumX_D(), 0.0};
    if (request.stream)
        s.fill = request.stream->fillAndCopy_D(request.first);
    if (!spectrumOf)
        return s;
    const std::shared_ptr<FFTStream> fft = spectrumOf->fftStream();
    const std::shared_ptr<PitchStream> pitch = spectrumOf->pitchStream();
    if (!fft || !pitch)
        return s;
    for (std::int64_t i = fft->minimumIndex_D(); i < fft->maximumIndex_D(); ++i)
        s.spectrum.push_back(fft->valueAt_D(i));
    s.hzPerBin = fft->xScale;
    s.segment = spectrumOf->fftPitchIndex;
    if (s.segment >= 0)
        s.segmentTime = pitch->xScale * (static_cast<double>(s.segment) + pitch->overlap);
    if (s.segment >= pitch->minimumIndex_D() && s.segment < pitch->maximumIndex_D()) {
        s.pitch = pitch->valueAt_D(s.segment);
        s.goodness = pitch->goodnessStream()->valueAt_D(s.segment);
    }
    if (s.spectrum.empty())
        return s;
    // The peaks as the pitch search finds them, with its own settings.
    const PitchStream::SearchSettings search = pitch->searchSettings();
    std::vector<double> scratch = s.spectrum;
    PeakDataSetOC peaks;
    (void)peaks.setupWithN(static_cast<int>(scratch.size()), scratch.data(),
                           search.minPeakThreshold, s.hzPerBin, search.peakLowFreq,
                           search.thresholdIncrement);
    peaks.peaksForDensity();
    for (int i = 0; i < peaks.getNPeaks(); ++i)
        s.peaks.emplace_back(peaks.getXVal(i), peaks.getYVal(i) + PeakDataSetOC::kDbLimit);
    return s;
}

} // namespace quorval
