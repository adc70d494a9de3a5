// Writes the seed corpus of the WAV fuzz target into the directory given: small valid files
// of every accepted format, and the broken headers the reader must refuse or survive.
// Usage: make_wav_seeds DIRECTORY

#include "analysis/tests/support/WavImage.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace {

using quorval::WavImage;

// Bytes 11, 48, 85, ...: a pattern that is no silence in any format.
WavImage::Bytes pattern(std::size_t count)
{
    WavImage::Bytes data(count);
    for (std::size_t i = 0; i < count; i++)
        data[i] = static_cast<unsigned char>(i * 37 + 11);
    return data;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    std::vector<std::pair<std::string, WavImage>> seeds;
    auto seed = [&](const std::string &name, auto change) {
        WavImage image;
        image.data = pattern(64);
        change(image);
        seeds.emplace_back(name, image);
    };
    seed("mono16", [](WavImage &) {});
    seed("stereo16", [](WavImage &h) { h.channels = 2; });
    seed("mono8", [](WavImage &h) { h.bits = 8; });
    seed("stereo8", [](WavImage &h) { h.channels = 2, h.bits = 8; });
    seed("odd-data", [](WavImage &h) { h.channels = 2, h.data = pattern(63); });
    seed("format18", [](WavImage &h) { h.formatSize = 18; });
    seed("format-odd", [](WavImage &h) { h.formatSize = 21; });
    seed("short-format", [](WavImage &h) { h.formatSize = 12; });
    seed("huge-format", [](WavImage &h) { h.formatSize = 0xFFFFFFF0u; });
    seed("bits24", [](WavImage &h) { h.bits = 24; });
    seed("bits32", [](WavImage &h) { h.bits = 32; });
    seed("bits0", [](WavImage &h) { h.bits = 0, h.blockAlign = 0; });
    seed("float", [](WavImage &h) { h.formatTag = 3, h.bits = 32; });
    seed("extensible", [](WavImage &h) { h.formatTag = 0xFFFE, h.formatSize = 40; });
    seed("channels3", [](WavImage &h) { h.channels = 3; });
    seed("list-before-data", [](WavImage &h) { h.chunkBeforeData = "LIST"; });
    seed("fact-before-data", [](WavImage &h) { h.chunkBeforeData = "fact"; });
    seed("oversize-data", [](WavImage &h) { h.dataSize = 65; });
    seed("truncated-data", [](WavImage &h) { h.dataSize = 4000, h.riffSize = 4100; });
    seed("huge-data", [](WavImage &h) { h.dataSize = 0x7FFFFFF0, h.riffSize = 0xFFFFFFFF; });
    seed("bits0-largest-data", [](WavImage &h) {
        h.bits = 0, h.blockAlign = 0, h.dataSize = 0x7FFFFFFF, h.riffSize = 0xFFFFFFFF;
    });
    seed("empty-data", [](WavImage &h) { h.data.clear(); });

    for (const auto &[name, image] : seeds) {
        const std::string path = std::string(argv[1]) + "/" + name + ".wav";
        const WavImage::Bytes bytes = image.bytes();
        std::FILE *file = std::fopen(path.c_str(), "wb");
        if (file == nullptr || std::fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size()) {
            std::fprintf(stderr, "cannot write %s\n", path.c_str());
            return 1;
        }
        std::fclose(file);
    }
    return 0;
}
