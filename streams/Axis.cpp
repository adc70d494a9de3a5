#include "streams/Axis.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>

namespace quorval {

namespace {

// The 2, 5, 10 rule on a value already brought into [1, 10].
double roundUp125(double scaled)
{
    if (scaled <= 2.0)
        return 2.0;
    if (scaled <= 5.0)
        return 5.0;
    return 10.0;
}

std::string fixed(double value, int decimals)
{
    char buffer[400];
    const auto [end, error] =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, decimals);
    return error == std::errc() ? std::string(buffer, end) : std::string();
}

std::string exponent(double value)
{
    char buffer[64];
    const auto [end, error] =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::scientific, 6);
    return error == std::errc() ? std::string(buffer, end) : std::string();
}

// Zero-padded (or space-padded) whole number of at least width digits.
std::string padded(std::int64_t value, int width, char pad = '0')
{
    std::string digits = std::to_string(value);
    if (static_cast<int>(digits.size()) < width)
        digits.insert(0, static_cast<std::size_t>(width) - digits.size(), pad);
    return digits;
}

} // namespace

double plainGridSize(double step)
{
    if (!(step > 0.0) || !std::isfinite(step))
        return 0.0;
    double power = 1.0;
    double scaled = step;
    while (scaled < 1.0) {
        scaled *= 10.0;
        power /= 10.0;
    }
    while (scaled > 10.0) {
        scaled /= 10.0;
        power *= 10.0;
    }
    return roundUp125(scaled) * power;
}

double timeGridSize(double step)
{
    if (!(step > 0.0) || !std::isfinite(step))
        return 0.0;
    if (step <= 1.0)
        return plainGridSize(step);
    if (step >= 3600.0)
        return plainGridSize(step / 3600.0) * 3600.0;
    const double unit = step > 60.0 ? 60.0 : 1.0;
    const double s = step / unit;
    for (const double tick : {2.0, 4.0, 10.0, 15.0, 30.0})
        if (tick >= s)
            return unit * tick;
    return unit * 60.0;
}

double gridSize(double step, bool functionOfTime)
{
    return functionOfTime ? timeGridSize(step) : plainGridSize(step);
}

std::string axisLabel(double value, double step)
{
    const double size = std::fabs(value);
    if (value == 0.0)
        return "0";
    if (size >= 0.001 && size < 1.0)
        return fixed(value, 0);
    if (!(size >= 1.0 && size <= 1e15))
        return exponent(value);
    struct Scale
    {
        double above;
        double divisor;
        const char *suffix;
    };
    static constexpr std::array<Scale, 4> kScales = {{
        {9.999e11, 1e12, "T"},
        {9.999e8, 1e9, "G"},
        {999900.0, 1e6, "M"},
        {999.9, 1000.0, "k"},
    }};
    double divisor = 1.0;
    const char *suffix = "";
    for (const Scale &scale : kScales) {
        if (size > scale.above) {
            divisor = scale.divisor;
            suffix = scale.suffix;
            break;
        }
    }
    const double v = value / divisor;
    const double s = step / divisor;
    if (s >= 1.0 || !(s > 0.0))
        return std::to_string(static_cast<std::int64_t>(v)) + suffix;
    const int decimals = static_cast<int>(-std::floor(std::log10(s * 1.001)));
    return fixed(v, std::min(decimals, 17)) + suffix;
}

RulerLabel rulerLabel(double t, double inc)
{
    int decimals = 0;
    std::int64_t scale = 1;
    if (inc < 0.9) {
        for (double copy = inc; copy < 0.9 && decimals < 9; copy *= 10.0) {
            ++decimals;
            scale *= 10;
        }
    }
    const auto n = static_cast<std::int64_t>(t * static_cast<double>(scale) + 0.5);
    const std::int64_t hours = n / (scale * 3600);
    const std::int64_t r1 = n % (scale * 3600);
    const std::int64_t minutes = r1 / (scale * 60);
    const std::int64_t r2 = r1 % (scale * 60);
    const std::int64_t seconds = r2 / scale;
    const std::int64_t fraction = r2 - seconds * scale;
    RulerLabel label;
    if (decimals >= 1 && hours < 1) {
        label.text =
            std::to_string(minutes) + ":" + padded(seconds, 2) + "." + padded(fraction, decimals);
        label.narrowChars = 1.2;
    } else if (decimals >= 1) {
        label.text = std::to_string(hours) + ":" + padded(minutes, 2, ' ') + ":" +
                     padded(seconds, 2) + "." + padded(fraction, decimals);
        label.narrowChars = 1.8;
    } else if (hours < 1) {
        label.text = std::to_string(minutes) + ":" + padded(seconds, 2);
        label.narrowChars = 0.6;
    } else {
        label.text = std::to_string(hours) + ":" + padded(minutes, 2) + ":" + padded(seconds, 2);
        label.narrowChars = 1.2;
    }
    return label;
}

} // namespace quorval
