#pragma once

// Long sound files of instrument-like tones for the benchmarks, written straight to disk a second
// at a time, so that even a 74-minute file never sits in memory.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace quorval::bench {

constexpr int kSampleRate = 44100;

// One period of each timbre, as a table: a bright bowed string (every harmonic, 1/k), a
// clarinet (odd harmonics), a flute (a few harmonics falling fast) and a voice-like tone with a
// weak fundamental. Vibrato goes on the string and the voice.
class Timbres
{
public:
    static constexpr int kTableSize = 4096;
    static constexpr int kCount = 4;

    Timbres()
    {
        const std::array<std::vector<double>, kCount> partials = {{
            {1, 1 / 2., 1 / 3., 1 / 4., 1 / 5., 1 / 6., 1 / 7., 1 / 8., 1 / 9., 1 / 10.},
            {1, 0.05, 0.6, 0.04, 0.4, 0.03, 0.25, 0.02, 0.15},
            {1, 0.3, 0.08, 0.02},
            {0.2, 1, 0.7, 0.4, 0.3, 0.2, 0.1},
        }};
        for (int t = 0; t < kCount; ++t) {
            auto &table = tables[static_cast<std::size_t>(t)];
            table.resize(kTableSize + 1);
            double peak = 0.0;
            for (int i = 0; i <= kTableSize; ++i) {
                double v = 0.0;
                for (std::size_t k = 0; k < partials[t].size(); ++k)
                    v += partials[t][k] *
                         std::sin(2.0 * M_PI * static_cast<double>(k + 1) * i / kTableSize);
                table[static_cast<std::size_t>(i)] = v;
                peak = std::max(peak, std::abs(v));
            }
            for (double &v : table)
                v /= peak;
        }
    }

    // Timbre t at phase 0 .. 1 (one period), by linear interpolation.
    [[nodiscard]] double at(int t, double phase) const
    {
        const double x = phase * kTableSize;
        const auto i = static_cast<std::size_t>(x);
        const double frac = x - static_cast<double>(i);
        const auto &table = tables[static_cast<std::size_t>(t)];
        return table[i] + (table[i + 1] - table[i]) * frac;
    }

private:
    std::array<std::vector<double>, kCount> tables;
};

// Writes a mono 16-bit WAV file of `seconds` of notes a quarter to one second long, each of a
// pseudo-random note between G3 and E6, slightly out of tune, in turn of each timbre. False
// when the file cannot be written.
inline bool writeGeneratedMusic(const std::string &path, double seconds)
{
    const auto frames = static_cast<std::int64_t>(seconds * kSampleRate);
    const std::int64_t dataBytes = frames * 2;
    if (dataBytes > 0x7fffffff - 44)
        return false;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    auto put32 = [&out](std::uint32_t v) {
        for (int b = 0; b < 4; ++b)
            out.put(static_cast<char>((v >> (8 * b)) & 0xff));
    };
    auto put16 = [&out](std::uint16_t v) {
        out.put(static_cast<char>(v & 0xff));
        out.put(static_cast<char>(v >> 8));
    };
    out.write("RIFF", 4);
    put32(static_cast<std::uint32_t>(36 + dataBytes));
    out.write("WAVEfmt ", 8);
    put32(16);
    put16(1);
    put16(1);
    put32(kSampleRate);
    put32(kSampleRate * 2);
    put16(2);
    put16(16);
    out.write("data", 4);
    put32(static_cast<std::uint32_t>(dataBytes));

    const Timbres timbres;
    std::uint32_t random = 12345;
    auto next = [&random] {
        random = random * 1664525u + 1013904223u;
        return static_cast<double>(random >> 8) / static_cast<double>(1u << 24);
    };
    std::vector<std::int16_t> buffer;
    buffer.reserve(kSampleRate);
    std::int64_t noteLeft = 0;
    std::int64_t noteLength = 1;
    int timbre = 0;
    double freqHz = 440.0;
    double phase = 0.0;
    double vibratoPhase = 0.0;
    for (std::int64_t f = 0; f < frames; ++f) {
        if (noteLeft == 0) {
            noteLength = static_cast<std::int64_t>((0.25 + 0.75 * next()) * kSampleRate);
            noteLeft = noteLength;
            timbre = (timbre + 1) % Timbres::kCount;
            const double note = 55.0 + std::floor(next() * 34.0) + (next() - 0.5) * 0.4;
            freqHz = 440.0 * std::exp2((note - 69.0) / 12.0);
        }
        const std::int64_t into = noteLength - noteLeft;
        // 10 ms fades, so notes start and end without clicks.
        const double envelope = std::min(
            {1.0, static_cast<double>(into) / 441.0, static_cast<double>(noteLeft) / 441.0});
        const bool vibrato = timbre == 0 || timbre == 3;
        const double vibratoCents = vibrato ? 20.0 * std::sin(vibratoPhase) : 0.0;
        vibratoPhase += 2.0 * M_PI * 5.5 / kSampleRate;
        phase += freqHz * std::exp2(vibratoCents / 1200.0) / kSampleRate;
        phase -= std::floor(phase);
        buffer.push_back(
            static_cast<std::int16_t>(std::lround(12000.0 * envelope * timbres.at(timbre, phase))));
        --noteLeft;
        if (buffer.size() == buffer.capacity() || f + 1 == frames) {
            out.write(reinterpret_cast<const char *>(buffer.data()),
                      static_cast<std::streamsize>(buffer.size() * 2));
            buffer.clear();
        }
    }
    return static_cast<bool>(out);
}

} // namespace quorval::bench
