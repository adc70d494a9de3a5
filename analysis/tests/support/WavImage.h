#pragma once

// A WAV file assembled field by field, for tests and fuzz seeds: each broken header differs
// from an accepted one in the fields a test sets. Header-only, standard library only.

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

namespace quorval {

struct WavImage
{
    using Bytes = std::vector<unsigned char>;

    std::uint16_t formatTag = 1;
    std::uint16_t channels = 1;
    std::uint32_t rate = 8000;
    std::uint16_t bits = 16;
    std::optional<std::uint16_t> blockAlign; // default: channels × bytes per sample
    std::optional<std::uint32_t> byteRate;   // default: rate × block align
    std::uint32_t formatSize = 16;           // declared; at most 1024 body bytes are written
    const char *chunkBeforeData = nullptr;   // a 4-byte chunk between "fmt " and "data"
    Bytes data;
    std::optional<std::uint32_t> dataSize; // default: data.size()
    std::optional<std::uint32_t> riffSize; // default: consistent with what is written

    static void appendLE(Bytes &bytes, std::uint32_t value, int width)
    {
        for (int i = 0; i < width; i++)
            bytes.push_back(static_cast<unsigned char>(value >> (8 * i)));
    }

    static void appendId(Bytes &bytes, const char *id) { bytes.insert(bytes.end(), id, id + 4); }

    [[nodiscard]] Bytes bytes() const
    {
        const std::uint16_t align =
            blockAlign.value_or(static_cast<std::uint16_t>(channels * ((bits + 7) / 8)));
        Bytes body;
        appendLE(body, formatTag, 2);
        appendLE(body, channels, 2);
        appendLE(body, rate, 4);
        appendLE(body, byteRate.value_or(rate * align), 4);
        appendLE(body, align, 2);
        appendLE(body, bits, 2);
        body.resize(std::min<std::uint32_t>(formatSize, 1024), 0x5A); // extra bytes, or short
        const std::size_t chunkBytes = chunkBeforeData != nullptr ? 12 : 0;
        const auto consistent =
            static_cast<std::uint32_t>(4 + 8 + body.size() + chunkBytes + 8 + data.size());

        Bytes out;
        appendId(out, "RIFF");
        appendLE(out, riffSize.value_or(consistent), 4);
        appendId(out, "WAVE");
        appendId(out, "fmt ");
        appendLE(out, formatSize, 4);
        out.insert(out.end(), body.begin(), body.end());
        if (chunkBeforeData != nullptr) {
            appendId(out, chunkBeforeData);
            appendLE(out, 4, 4);
            appendLE(out, 0, 4);
        }
        appendId(out, "data");
        appendLE(out, dataSize.value_or(static_cast<std::uint32_t>(data.size())), 4);
        out.insert(out.end(), data.begin(), data.end());
        return out;
    }
};

} // namespace quorval
