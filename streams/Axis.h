#pragma once

#include <string>

namespace quorval {

// Grid spacing and the text of axis numbers, shared by the trace area and its headers. Pure
// functions, any thread; text is built without the C library's locale, so the decimal point is
// always ".".

// The spacing of a frequency or value axis for a wanted spacing step (> 0): step rounded up to
// the next of 2, 5, 10 times a power of ten; a power of ten itself goes up to twice it. 0 for
// step <= 0 (no grid).
double plainGridSize(double step);
// The spacing of a time axis (seconds): the 2, 5, 10 rule up to a second and from an hour on,
// and between them the clock's 2, 4, 10, 15, 30 seconds or minutes (or a whole minute).
double timeGridSize(double step);
// timeGridSize on a time axis, plainGridSize otherwise.
double gridSize(double step, bool functionOfTime);

// The text of an axis number at grid spacing step: "0" for 0; values under 1 in size are
// rounded to whole numbers (so they read "0" or "1", deliberately, as they always have); from 1
// on they carry a k, M, G or T suffix and as many decimals as step needs; anything smaller
// than 0.001 or beyond 1e15 in size is written in exponent form.
std::string axisLabel(double value, double step);

// The ruler's text for time t (seconds, >= 0) at grid spacing inc: minutes and seconds, hours
// when there are any, and the decimals inc needs ("0:00.5", "1:02:05", "1: 2:05.0" with the
// minutes space-padded after hours).
struct RulerLabel
{
    std::string text;
    // How many characters' width the narrow colons and points save, for centring the text.
    double narrowChars = 0.0;
};
RulerLabel rulerLabel(double t, double inc);

} // namespace quorval
