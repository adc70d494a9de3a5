#include "scale/KeyGuess.h"

#include <algorithm>
#include <cmath>

namespace quorval {

namespace {

// Krumhansl and Kessler's ratings of how well each degree fits a major or a minor context.
constexpr std::array<double, 12> kMajor = {6.35, 2.23, 3.48, 2.33, 4.38, 4.09,
                                           2.52, 5.19, 2.39, 3.66, 2.29, 2.88};
constexpr std::array<double, 12> kMinor = {6.33, 2.68, 3.52, 5.38, 2.60, 3.53,
                                           2.54, 4.75, 3.98, 2.69, 3.34, 3.17};

// Correlation of the durations with profile turned so that its first entry sits on tonic.
double correlation(const std::array<double, 12> &durations, const std::array<double, 12> &profile,
                   int tonic)
{
    double meanD = 0.0;
    double meanP = 0.0;
    for (int k = 0; k < 12; ++k) {
        meanD += durations[std::size_t(k)] / 12.0;
        meanP += profile[std::size_t(k)] / 12.0;
    }
    double dp = 0.0;
    double dd = 0.0;
    double pp = 0.0;
    for (int pitchClass = 0; pitchClass < 12; ++pitchClass) {
        const double d = durations[std::size_t(pitchClass)] - meanD;
        const double p = profile[std::size_t((pitchClass - tonic + 12) % 12)] - meanP;
        dp += d * p;
        dd += d * d;
        pp += p * p;
    }
    return dd > 0.0 ? dp / std::sqrt(dd * pp) : 0.0;
}

} // namespace

void KeyGuess::add(long long noteNumber, double seconds)
{
    if (!std::isfinite(seconds) || seconds <= 0.0)
        return;
    durations_[std::size_t(((noteNumber % 12) + 12) % 12)] += seconds;
}

std::optional<KeyGuess::Result> KeyGuess::guess() const
{
    const auto [shortest, longest] = std::minmax_element(durations_.begin(), durations_.end());
    if (!(*longest > *shortest))
        return std::nullopt;
    std::vector<Key> keys;
    for (const bool minor : {false, true})
        for (int tonic = 0; tonic < 12; ++tonic)
            keys.push_back({tonic, minor, correlation(durations_, minor ? kMinor : kMajor, tonic)});
    std::sort(keys.begin(), keys.end(),
              [](const Key &a, const Key &b) { return a.correlation > b.correlation; });
    Result result{keys[0], keys[1], 0.0};
    const double gap = keys[0].correlation - keys[1].correlation;
    result.confidence = std::clamp(keys[0].correlation * std::min(1.0, 0.5 + 5.0 * gap), 0.0, 1.0);
    return result;
}

} // namespace quorval
