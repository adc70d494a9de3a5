#pragma once

#include <array>
#include <optional>
#include <vector>

namespace quorval {

// Proposes the key and mode a passage is in from how long each pitch class sounds: the
// Krumhansl-Schmuckler method, which correlates the duration of each of the twelve pitch classes
// with the major and minor key profiles of Krumhansl and Kessler (1982, probe-tone ratings) turned
// to each of the twelve tonics, and takes the best of the 24. Standard C++ only; any thread.
class KeyGuess
{
public:
    struct Key
    {
        int tonicPitchClass = 0; // C = 0 .. B = 11
        bool minor = false;
        // Pearson correlation of the durations with the key's profile, -1 .. 1.
        double correlation = 0.0;
    };
    struct Result
    {
        Key best;
        Key runnerUp;
        // How sure the guess is, 0 .. 1: the best correlation, halved when the runner-up ties
        // it and whole once the runner-up trails by 0.1 (a relative major or minor often comes
        // close, and then the guess is a coin toss between the two).
        double confidence = 0.0;
    };

    // Adds seconds of sound at a note number (its pitch class is what counts). Negative or
    // non-finite seconds are ignored.
    void add(long long noteNumber, double seconds);

    // Seconds gathered per pitch class.
    const std::array<double, 12> &durations() const { return durations_; }

    // The best key; nothing when no sound was added or every pitch class lasted equally long
    // (no profile fits better than another).
    std::optional<Result> guess() const;

private:
    std::array<double, 12> durations_{};
};

} // namespace quorval
