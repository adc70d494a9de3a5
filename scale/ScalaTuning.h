#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorval {

// A tuning in the Scala archive's formats: a scale file (.scl) and, optionally, a keyboard
// mapping (.kbm). Standard C++ only, no state beyond the values read; any thread.
//
// Scale file: lines starting with "!" are comments. The first other line describes the scale
// (it may be empty), the next holds the number of pitches, and then come that many pitches, one
// a line, each above the unwritten 1/1: cents when the value has a ".", else a ratio "a/b" or a
// whole number "a" (a/1); text after the value is ignored. The last pitch is the period the
// scale repeats at, usually 2/1.
//
// Keyboard mapping: after the comments, in this order, the map size (0 maps keys straight onto
// successive degrees), the first and last key to tune, the middle key (where the map's first
// entry lies), the reference key, its frequency in Hz, the degree that is the mapping's formal
// octave, then one entry per key of the map: a scale degree, or "x" for a key left out. Entries
// missing at the end are left out.
//
// A refusal names the line at fault: "line 4: \"3/0\" is no ratio: ...".
struct ScalaTuning
{
    // More pitches than any tuning a musician plays in; keeps the line tables small.
    static constexpr int kMaxPitches = 2048;
    static constexpr int kKeys = 128; // MIDI keys 0 .. 127

    struct Mapping
    {
        int mapSize = 0;
        int firstKey = 0;
        int lastKey = kKeys - 1;
        int middleKey = 60;
        int referenceKey = 69;
        double referenceFreqHz = 440.0;
        int octaveDegree = 0;
        std::vector<int> degrees; // mapSize entries, -1 for a key left out

        // The degree (any integer, whole periods of the scale included) that key plays, or
        // nothing for a key the map leaves out. Keys outside firstKey .. lastKey are not tuned,
        // but the reference key may lie there.
        std::optional<long long> degreeOfKey(int key) const;
    };

    std::string description;
    // The pitches in cents above 1/1, in the file's order; the last is the period (> 0).
    std::vector<double> cents;
    // The keyboard mapping, when one was read.
    std::optional<Mapping> mapping;

    // Pitches per period, the 1/1 included.
    int size() const { return static_cast<int>(cents.size()); }
    double periodCents() const { return cents.back(); }
    // Cents of degree d (0 = 1/1, any sign) above the 1/1: whole periods plus a pitch.
    double degreeCents(long long d) const;

    // The scale file's text, or nothing with error set.
    static std::optional<ScalaTuning> readScale(std::string_view text, std::string &error);
    // A keyboard mapping's text, or nothing with error set.
    static std::optional<Mapping> readMapping(std::string_view text, std::string &error);
    // Both files (mappingPath empty: none); errors start with the file's path.
    static std::optional<ScalaTuning> readFiles(const std::string &scalePath,
                                                const std::string &mappingPath, std::string &error);
};

} // namespace quorval
