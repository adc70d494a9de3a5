#pragma once

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

namespace quorval {

// seconds as minutes, seconds and tenths, "0:14.0": rounded once, so that 59.96 s reads
// "1:00.0" and never "0:60.0". Negative or non-finite seconds read "0:00.0".
inline std::string minutesAndSeconds(double seconds)
{
    const long long tenths =
        std::isfinite(seconds) ? std::llround(std::max(seconds, 0.0) * 10.0) : 0;
    char text[40];
    std::snprintf(text, sizeof text, "%lld:%02lld.%lld", tenths / 600, tenths % 600 / 10,
                  tenths % 10);
    return text;
}

} // namespace quorval
