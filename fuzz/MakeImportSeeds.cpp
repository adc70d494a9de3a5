// Writes the seed corpus of the import fuzz target into the directory given: short sounds in
// the formats the decoder takes and at odd rates and channel counts, each after the target's
// leading option byte. Usage: make_import_seeds DIRECTORY

#include <sndfile.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

struct Seed
{
    const char *name;
    int format;
    int channels;
    int rate;
    int frames;
};

bool write(const std::string &path, const Seed &seed)
{
    SF_INFO info{};
    info.samplerate = seed.rate;
    info.channels = seed.channels;
    info.format = seed.format;
    if (!sf_format_check(&info))
        return false;
    SNDFILE *file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file)
        return false;
    std::vector<float> samples(static_cast<std::size_t>(seed.frames * seed.channels));
    for (int f = 0; f < seed.frames; ++f)
        for (int c = 0; c < seed.channels; ++c)
            samples[static_cast<std::size_t>(f * seed.channels + c)] =
                static_cast<float>(0.5 * std::sin(2.0 * M_PI * 220.0 * (c + 1) * f / seed.rate));
    const bool ok = sf_writef_float(file, samples.data(), seed.frames) == seed.frames;
    sf_close(file);
    return ok;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    const std::string directory = argv[1];
    const std::vector<Seed> seeds = {
        {"pcm16-8k", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 8000, 2000},
        {"pcm16-768k-stereo", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 768000, 6000},
        {"pcm24-3ch", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 3, 48000, 2000},
        {"float", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 22050, 3000},
        {"wavex-4ch", SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, 4, 44100, 1500},
        {"aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 1, 44100, 3000},
        {"flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 44100, 4000},
        {"pcm16-20hz", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 20, 200},
        {"pcm8-1100", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 1, 1100, 1000},
    };
    int failed = 0;
    for (const Seed &seed : seeds) {
        const std::string sound = directory + "/" + seed.name + ".sound";
        if (!write(sound, seed)) {
            ++failed;
            continue;
        }
        std::ifstream in(sound, std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(in), {}};
        std::remove(sound.c_str());
        std::ofstream(directory + "/" + seed.name, std::ios::binary) << '\0' << bytes;
    }
    return failed == 0 ? 0 : 1;
}
