// Writes the seed corpus of the WAV fuzz target into the directory given: small valid files
// of every accepted format, and the broken headers the reader must refuse or survive.
// Usage: make_wav_seeds DIRECTORY

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

void appendLE(Bytes &bytes, std::uint32_t value, int width)
{
    for (int i = 0; i < width; i++)
        bytes.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

void appendId(Bytes &bytes, const char *id)
{
    bytes.insert(bytes.end(), id, id + 4);
}

struct Header
{
    std::uint16_t formatTag = 1;
    std::uint16_t channels = 1;
    std::uint32_t rate = 8000;
    std::uint16_t bits = 16;
    std::uint32_t formatSize = 16;
    const char *chunkBeforeData = nullptr;
    std::uint32_t dataBytes = 64; // bytes present
    std::int64_t dataSize = -1;   // declared; -1: as present
    std::int64_t riffSize = -1;   // -1: consistent
    std::int64_t blockAlign = -1; // -1: channels × bytes per sample
};

Bytes build(const Header &h)
{
    const auto align = static_cast<std::uint16_t>(
        h.blockAlign >= 0 ? h.blockAlign : h.channels * ((h.bits + 7) / 8));
    Bytes body;
    appendLE(body, h.formatTag, 2);
    appendLE(body, h.channels, 2);
    appendLE(body, h.rate, 4);
    appendLE(body, h.rate * align, 4);
    appendLE(body, align, 2);
    appendLE(body, h.bits, 2);
    body.resize(std::min<std::uint32_t>(h.formatSize, 64), 0);
    Bytes data;
    for (std::uint32_t i = 0; i < h.dataBytes; i++)
        data.push_back(static_cast<unsigned char>(i * 37 + 11));

    Bytes out;
    appendId(out, "RIFF");
    const std::size_t extra = h.chunkBeforeData != nullptr ? 12 : 0;
    appendLE(out,
             static_cast<std::uint32_t>(
                 h.riffSize >= 0 ? h.riffSize : 4 + 8 + body.size() + extra + 8 + data.size()),
             4);
    appendId(out, "WAVE");
    appendId(out, "fmt ");
    appendLE(out, h.formatSize, 4);
    out.insert(out.end(), body.begin(), body.end());
    if (h.chunkBeforeData != nullptr) {
        appendId(out, h.chunkBeforeData);
        appendLE(out, 4, 4);
        appendLE(out, 0, 4);
    }
    appendId(out, "data");
    appendLE(out, static_cast<std::uint32_t>(h.dataSize >= 0 ? h.dataSize : data.size()), 4);
    out.insert(out.end(), data.begin(), data.end());
    return out;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    std::vector<std::pair<std::string, Header>> seeds;
    auto seed = [&](const std::string &name, auto change) {
        Header header;
        change(header);
        seeds.emplace_back(name, header);
    };
    seed("mono16", [](Header &) {});
    seed("stereo16", [](Header &h) { h.channels = 2; });
    seed("mono8", [](Header &h) { h.bits = 8; });
    seed("stereo8", [](Header &h) { h.channels = 2, h.bits = 8; });
    seed("odd-data", [](Header &h) { h.channels = 2, h.dataBytes = 63; });
    seed("format18", [](Header &h) { h.formatSize = 18; });
    seed("format-odd", [](Header &h) { h.formatSize = 21; });
    seed("short-format", [](Header &h) { h.formatSize = 12; });
    seed("huge-format", [](Header &h) { h.formatSize = 0xFFFFFFF0u; });
    seed("bits24", [](Header &h) { h.bits = 24; });
    seed("bits32", [](Header &h) { h.bits = 32; });
    seed("bits0", [](Header &h) { h.bits = 0, h.blockAlign = 0; });
    seed("float", [](Header &h) { h.formatTag = 3, h.bits = 32; });
    seed("extensible", [](Header &h) { h.formatTag = 0xFFFE, h.formatSize = 40; });
    seed("channels3", [](Header &h) { h.channels = 3; });
    seed("list-before-data", [](Header &h) { h.chunkBeforeData = "LIST"; });
    seed("fact-before-data", [](Header &h) { h.chunkBeforeData = "fact"; });
    seed("oversize-data", [](Header &h) { h.dataSize = 65; });
    seed("truncated-data", [](Header &h) { h.dataSize = 4000, h.riffSize = 4100; });
    seed("huge-data", [](Header &h) { h.dataSize = 0x7FFFFFF0, h.riffSize = 0xFFFFFFFF; });
    seed("empty-data", [](Header &h) { h.dataBytes = 0; });

    for (const auto &[name, header] : seeds) {
        const std::string path = std::string(argv[1]) + "/" + name + ".wav";
        const Bytes bytes = build(header);
        std::FILE *file = std::fopen(path.c_str(), "wb");
        if (file == nullptr || std::fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size()) {
            std::fprintf(stderr, "cannot write %s\n", path.c_str());
            return 1;
        }
        std::fclose(file);
    }
    return 0;
}
