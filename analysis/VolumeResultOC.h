#pragma once

namespace quorval {

// The least, greatest and root-mean-square value of a stretch of numbers. Units are those of
// the values measured: raw integer sample units for sound (WavFileOC::getVolume), spectrum
// magnitudes for a range of FFT bins (FFTOC::getRange).
//
// Threading: a plain value object; one thread at a time per object.
class VolumeResultOC
{
public:
    // A new result is cleared (see clear()).
    VolumeResultOC() { clear(); }

    // Sets min to the largest finite double, max to its negative and rms to 0, so that the first
    // value measured becomes both the least and the greatest.
    void clear();

    [[nodiscard]] double getMin() const { return min; }
    void setMin(double value) { min = value; }
    [[nodiscard]] double getMax() const { return max; }
    void setMax(double value) { max = value; }
    [[nodiscard]] double getRMS() const { return rms; }
    void setRMS(double value) { rms = value; }

private:
    double min;
    double max;
    double rms;
};

} // namespace quorval
