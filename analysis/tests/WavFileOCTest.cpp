#include "analysis/WavFileOC.h"

#include "analysis/VolumeResultOC.h"
#include "analysis/tests/support/WavImage.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace quorval {
namespace {

namespace fs = std::filesystem;
using Bytes = WavImage::Bytes;

std::uint32_t readLE32(const Bytes &bytes, std::size_t offset)
{
    return WavFileOC::inputLong(bytes.data(), static_cast<int>(offset));
}

// Each test works in its own temporary directory, which also serves as TMPDIR so that the
// files the class creates are removed with it.
class WavFileOCTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::string pattern = (fs::temp_directory_path() / "quorval-wav-XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        dir = pattern;
        if (const char *old = std::getenv("TMPDIR"))
            oldTmpDir = old;
        ::setenv("TMPDIR", dir.c_str(), 1);
    }

    void TearDown() override
    {
        if (oldTmpDir)
            ::setenv("TMPDIR", oldTmpDir->c_str(), 1);
        else
            ::unsetenv("TMPDIR");
        std::error_code error;
        fs::remove_all(dir, error);
    }

    std::string write(const std::string &name, const Bytes &bytes) const
    {
        const std::string path = (dir / name).string();
        std::ofstream out(path, std::ios::binary);
        out.write(reinterpret_cast<const char *>(bytes.data()),
                  static_cast<std::streamsize>(bytes.size()));
        return path;
    }

    static Bytes read(const std::string &path)
    {
        std::ifstream in(path, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    // Writes frames of interleaved 16-bit values with libsndfile.
    std::string writeWithSndfile(const std::string &name, int format, int channels,
                                 const std::vector<short> &interleaved) const
    {
        const std::string path = (dir / name).string();
        SF_INFO info{};
        info.samplerate = 22050;
        info.channels = channels;
        info.format = format;
        SNDFILE *file = sf_open(path.c_str(), SFM_WRITE, &info);
        EXPECT_NE(file, nullptr) << sf_strerror(nullptr);
        if (file == nullptr)
            return path;
        const sf_count_t frames = static_cast<sf_count_t>(interleaved.size()) / channels;
        EXPECT_EQ(sf_writef_short(file, interleaved.data(), frames), frames);
        sf_close(file);
        return path;
    }

    fs::path dir;
    std::optional<std::string> oldTmpDir;
};

std::vector<std::int16_t> seededSamples(std::size_t count, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_int_distribution<int> value(-32768, 32767);
    std::vector<std::int16_t> samples(count);
    for (auto &sample : samples)
        sample = static_cast<std::int16_t>(value(generator));
    return samples;
}

TEST_F(WavFileOCTest, writtenFilesReadBackIdenticallyWithLibsndfile)
{
    for (int channels : {1, 2}) {
        SCOPED_TRACE(channels);
        const int frames = 5000;
        const auto samples = seededSamples(static_cast<std::size_t>(frames * channels), 11);
        WavFileOC wav;
        ASSERT_TRUE(wav.setupWithSampleRate(44100.0, channels, 2, 1 << 20));
        EXPECT_TRUE(wav.isVerified());
        EXPECT_EQ(fs::path(wav.getFilePath()).parent_path(), dir);
        EXPECT_EQ(fs::path(wav.getFilePath()).extension(), ".wav");
        ASSERT_TRUE(wav.putSamples(samples.data(), static_cast<int>(samples.size()), 0));
        ASSERT_TRUE(wav.finalizeWithByteSize(static_cast<int>(samples.size() * 2)));

        SF_INFO info{};
        SNDFILE *file = sf_open(wav.getFilePath().c_str(), SFM_READ, &info);
        ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
        EXPECT_EQ(info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
        EXPECT_EQ(info.channels, channels);
        EXPECT_EQ(info.samplerate, 44100);
        ASSERT_EQ(info.frames, frames);
        std::vector<short> back(samples.size());
        EXPECT_EQ(sf_readf_short(file, back.data(), frames), frames);
        sf_close(file);
        EXPECT_TRUE(std::equal(back.begin(), back.end(), samples.begin()));

        // And this class opens its own file with the same format.
        WavFileOC reopened;
        ASSERT_TRUE(reopened.setupFromPath(wav.getFilePath()));
        EXPECT_EQ(reopened.getNChannels(), channels);
        EXPECT_EQ(reopened.getBytesPerSample(), 2);
        EXPECT_EQ(reopened.getSampleRate(), 44100.0);
        EXPECT_EQ(reopened.getFileDataLength(), frames * channels * 2);
        EXPECT_EQ(reopened.getHeaderLength(), 44);
    }
}

TEST_F(WavFileOCTest, eightBitFilesAreWrittenAsSignedBytesThatLibsndfileReadsOffsetByHalf)
{
    WavFileOC wav;
    ASSERT_TRUE(wav.setupWithSampleRate(8000.0, 1, 1, 100));
    // Two 16-bit values lay down four signed bytes: -128, -1, 0, 127.
    const std::int16_t packed[2] = {static_cast<std::int16_t>(0xFF80),
                                    static_cast<std::int16_t>(0x7F00)};
    ASSERT_TRUE(wav.putSamples(packed, 2, 0));
    ASSERT_TRUE(wav.finalizeWithByteSize(4));

    double samples[4];
    ASSERT_TRUE(wav.getSamples(samples, 0, 4));
    EXPECT_EQ(std::vector<double>(samples, samples + 4), (std::vector<double>{-128, -1, 0, 127}));

    // The standard reads 8-bit as unsigned: libsndfile sees each byte 128 units apart.
    SF_INFO info{};
    SNDFILE *file = sf_open(wav.getFilePath().c_str(), SFM_READ, &info);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_U8);
    int back[4];
    ASSERT_EQ(sf_read_int(file, back, 4), 4);
    sf_close(file);
    const int expected[4] = {0, 127, -128, -1}; // unsigned byte - 128
    for (int i = 0; i < 4; i++)
        EXPECT_EQ(back[i] >> 24, expected[i]) << i;
}

TEST_F(WavFileOCTest, readsFilesWrittenByLibsndfile)
{
    std::vector<short> values;
    for (int i = 0; i < 600; i++)
        values.push_back(static_cast<short>((i * 7919) % 65536 - 32768));
    struct Case
    {
        int format;
        int channels;
    };
    for (const Case c : {Case{SF_FORMAT_PCM_16, 1}, Case{SF_FORMAT_PCM_16, 2},
                         Case{SF_FORMAT_PCM_U8, 1}, Case{SF_FORMAT_PCM_U8, 2}}) {
        SCOPED_TRACE(testing::Message() << c.format << " " << c.channels);
        const bool eightBit = c.format == SF_FORMAT_PCM_U8;
        std::vector<short> written = values;
        if (eightBit) // whole multiples of 256 pass through 8 bits unchanged
            for (short &v : written)
                v = static_cast<short>(v & ~0xFF);
        const std::string path =
            writeWithSndfile("sndfile.wav", SF_FORMAT_WAV | c.format, c.channels, written);
        WavFileOC wav;
        ASSERT_TRUE(wav.setupFromPath(path));
        EXPECT_TRUE(wav.isVerified());
        EXPECT_EQ(wav.getSampleRate(), 22050.0);
        EXPECT_EQ(wav.getNChannels(), c.channels);
        EXPECT_EQ(wav.getBytesPerSample(), eightBit ? 1 : 2);
        const int frames = static_cast<int>(written.size()) / c.channels;
        EXPECT_EQ(wav.getFileDataLength(), frames * c.channels * (eightBit ? 1 : 2));

        // What this system reads for one stored value: 8-bit bytes as signed.
        auto sample = [&](short v) {
            return eightBit ? static_cast<double>(static_cast<signed char>(v / 256 + 128)) : v;
        };
        std::vector<double> got(static_cast<std::size_t>(frames), std::nan(""));
        ASSERT_TRUE(wav.getSamples(got.data(), 0, frames));
        for (int f = 0; f < frames; f++) {
            const std::size_t i = static_cast<std::size_t>(f * c.channels);
            const double expected = c.channels == 1
                                        ? sample(written[i])
                                        : (sample(written[i]) + sample(written[i + 1])) * 0.5;
            ASSERT_EQ(got[static_cast<std::size_t>(f)], expected) << "frame " << f;
        }
    }
}

TEST_F(WavFileOCTest, refusesFormatsItCannotRead)
{
    const std::vector<short> values(64, 1000);
    for (int format : {SF_FORMAT_WAV | SF_FORMAT_PCM_24, SF_FORMAT_WAV | SF_FORMAT_PCM_32,
                       SF_FORMAT_WAV | SF_FORMAT_FLOAT, SF_FORMAT_WAVEX | SF_FORMAT_PCM_16}) {
        SCOPED_TRACE(format);
        WavFileOC wav;
        EXPECT_FALSE(wav.setupFromPath(writeWithSndfile("other.wav", format, 1, values)));
        EXPECT_FALSE(wav.isVerified());
    }

    WavImage good;
    good.data = Bytes(40, 0);
    WavFileOC accepted;
    ASSERT_TRUE(accepted.setupFromPath(write("good.wav", good.bytes())));

    // Each variant differs from the accepted image in the fields its change sets.
    std::vector<std::pair<const char *, WavImage>> refused;
    auto refuse = [&](const char *what, auto change) {
        WavImage image = good;
        change(image);
        refused.emplace_back(what, image);
    };
    refuse("three channels", [](WavImage &i) { i.channels = 3; });
    refuse("no channels", [](WavImage &i) { i.channels = 0, i.blockAlign = 2; });
    refuse("24-bit", [](WavImage &i) { i.bits = 24; });
    refuse("float", [](WavImage &i) { i.formatTag = 3, i.bits = 32; });
    refuse("extensible", [](WavImage &i) { i.formatTag = 0xFFFE, i.formatSize = 40; });
    refuse("byte rate", [](WavImage &i) { i.byteRate = 8001 * 2; });
    refuse("negative rate", [](WavImage &i) { i.rate = 0x80000000u; }); // byte rate wraps to 0
    refuse("block align", [](WavImage &i) { i.blockAlign = 4; });
    refuse("no bits", [](WavImage &i) { i.bits = 0, i.blockAlign = 0, i.byteRate = 0; });
    refuse("negative bits", [](WavImage &i) {
        i.bits = 0x8000, i.blockAlign = 0x1000, i.byteRate = 8000u * 0x1000;
    });
    refuse("LIST chunk", [](WavImage &i) { i.chunkBeforeData = "LIST"; });
    refuse("fact chunk", [](WavImage &i) { i.chunkBeforeData = "fact"; });
    refuse("oversize data", [](WavImage &i) { i.dataSize = 40 + 1; });
    for (const auto &[what, wavImage] : refused) {
        WavFileOC wav;
        EXPECT_FALSE(wav.setupFromPath(write("refused.wav", wavImage.bytes()))) << what;
        EXPECT_FALSE(wav.isVerified()) << what;
    }

    Bytes notRiff = good.bytes();
    notRiff[0] = 'X';
    WavFileOC wav;
    EXPECT_FALSE(wav.setupFromPath(write("x.wav", notRiff)));
    EXPECT_FALSE(
        wav.setupFromPath(write("short.wav", Bytes(notRiff.begin(), notRiff.begin() + 30))));
    EXPECT_FALSE(wav.setupFromPath((dir / "missing.wav").string()));
}

TEST_F(WavFileOCTest, acceptsDataSizesWithinTheRiffSize)
{
    // Data size may be anything up to RIFF size + 8 - header length.
    WavImage image;
    image.data = Bytes(100, 1);
    image.riffSize = 4 + 24 + 8 + 100 + 50;
    image.dataSize = 150;
    WavFileOC wav;
    ASSERT_TRUE(wav.setupFromPath(write("edge.wav", image.bytes())));
    EXPECT_EQ(wav.getFileDataLength(), 150);
    EXPECT_EQ(wav.getMaxDataBytes(), 150);
    image.dataSize = 20;
    WavFileOC smaller;
    ASSERT_TRUE(smaller.setupFromPath(write("smaller.wav", image.bytes())));
    EXPECT_EQ(smaller.getFileDataLength(), 20);

    // An 18-byte format body (odd extra bytes, no pad) moves the data start.
    WavImage longer;
    longer.formatSize = 18;
    longer.data = Bytes(8, 0);
    WavFileOC wide;
    ASSERT_TRUE(wide.setupFromPath(write("wide.wav", longer.bytes())));
    EXPECT_EQ(wide.getHeaderLength(), 46);
}

TEST_F(WavFileOCTest, shortFormatBodyIsAcceptedUnverifiedWithNoFormat)
{
    WavImage image;
    image.formatSize = 12;
    image.data = Bytes(8, 3);
    WavFileOC wav;
    ASSERT_TRUE(wav.setupFromPath(write("short-fmt.wav", image.bytes())));
    EXPECT_FALSE(wav.isVerified());
    EXPECT_EQ(wav.getNChannels(), 0);
    EXPECT_EQ(wav.getSampleRate(), 0.0);
    EXPECT_EQ(wav.getBytesPerSample(), 0);
    EXPECT_EQ(wav.getHeaderLength(), 0);
    // Reading such an object yields silence, never stale memory, and no volume.
    double samples[4] = {7, 7, 7, 7};
    EXPECT_TRUE(wav.getSamples(samples, 0, 4));
    EXPECT_EQ(std::vector<double>(samples, samples + 4), std::vector<double>(4, 0.0));
    VolumeResultOC volume;
    volume.setMin(5.0);
    const unsigned char bytes[4] = {1, 2, 3, 4};
    EXPECT_EQ(wav.sumOfSquares(bytes, 4, volume), 0.0);
    EXPECT_EQ(volume.getMin(), 5.0);
    wav.getVolume(0, 4, volume);
    EXPECT_EQ(volume.getRMS(), 0.0);
}

TEST_F(WavFileOCTest, volumeCountsEveryChannelSample)
{
    WavImage stereo;
    stereo.channels = 2;
    for (int v : {100, -50, -32768, -1})
        WavImage::appendLE(stereo.data, static_cast<std::uint16_t>(v), 2);
    WavFileOC pair;
    ASSERT_TRUE(pair.setupFromPath(write("stereo.wav", stereo.bytes())));
    VolumeResultOC volume;
    pair.getVolume(0, 2, volume);
    EXPECT_EQ(volume.getMin(), -32768.0);
    EXPECT_EQ(volume.getMax(), 100.0);
    EXPECT_DOUBLE_EQ(volume.getRMS(), std::sqrt((100.0 * 100 + 50 * 50 + 32768.0 * 32768 + 1) / 4));
}

TEST_F(WavFileOCTest, writesAndReadsWrapAroundTheRing)
{
    WavFileOC wav;
    ASSERT_TRUE(wav.setupWithSampleRate(8000.0, 1, 2, 1000));
    std::vector<std::int16_t> fill(500, 9);
    ASSERT_TRUE(wav.putSamples(fill.data(), 500, 0));
    const std::int16_t samples[10] = {1, 2, 3, 4, 5, -6, -7, -8, -9, -10};
    ASSERT_TRUE(wav.putSamples(samples, 10, 990));

    const Bytes file = read(wav.getFilePath());
    ASSERT_EQ(file.size(), 44u + 1000u);
    for (int i = 0; i < 5; i++) {
        EXPECT_EQ(WavFileOC::inputShort(file.data(), 44 + 990 + 2 * i), samples[i]);
        EXPECT_EQ(WavFileOC::inputShort(file.data(), 44 + 2 * i), samples[5 + i]);
    }
    EXPECT_EQ(WavFileOC::inputShort(file.data(), 44 + 10), 9);
    EXPECT_EQ(wav.getFileDataLength(), 0);

    double back[12];
    ASSERT_TRUE(wav.getSamples(back, 990, 10));
    for (int i = 0; i < 10; i++)
        EXPECT_EQ(back[i], samples[i]) << i;

    VolumeResultOC volume;
    wav.getVolume(990, 12, volume); // five at the end, seven at the start
    EXPECT_EQ(volume.getMin(), -10.0);
    EXPECT_EQ(volume.getMax(), 9.0);
    EXPECT_DOUBLE_EQ(volume.getRMS(),
                     std::sqrt((1 + 4 + 9 + 16 + 25 + 36 + 49 + 64 + 81 + 100 + 81 + 81) / 12.0));

    // A smaller ring wraps reads earlier.
    wav.setMaxByteLength(994);
    ASSERT_TRUE(wav.getSamples(back, 990, 3));
    EXPECT_EQ(back[0], 1.0);
    EXPECT_EQ(back[1], 2.0);
    EXPECT_EQ(back[2], -6.0);
}

TEST_F(WavFileOCTest, readsPastTheEndAsSilence)
{
    // The header promises 40 bytes, the file holds 6.
    WavImage image;
    image.data = Bytes{1, 0, 2, 0, 3, 0};
    image.dataSize = 40;
    image.riffSize = 36 + 40;
    WavFileOC wav;
    ASSERT_TRUE(wav.setupFromPath(write("cut.wav", image.bytes())));
    std::vector<double> samples(20, std::nan(""));
    ASSERT_TRUE(wav.getSamples(samples.data(), 0, 20));
    EXPECT_EQ(samples[0], 1.0);
    EXPECT_EQ(samples[2], 3.0);
    for (std::size_t i = 3; i < 20; i++)
        EXPECT_EQ(samples[i], 0.0) << i;
    VolumeResultOC volume;
    wav.getVolume(0, 20, volume);
    EXPECT_EQ(volume.getMax(), 3.0);
    EXPECT_DOUBLE_EQ(volume.getRMS(), std::sqrt(14.0 / 20.0));
}

TEST_F(WavFileOCTest, putFloatsConvertsByTruncationWithoutWrapping)
{
    WavFileOC wav;
    ASSERT_TRUE(wav.setupWithSampleRate(8000.0, 1, 2, 1000));
    const float floats[10] = {1.0f,  -1.0f,  0.5f,          -0.00001f, 0.99999f,
                              1e10f, -1e10f, std::nanf(""), 0.25f,     -0.3f};
    ASSERT_TRUE(wav.putFloats(floats, 10, 990));
    const Bytes file = read(wav.getFilePath());
    ASSERT_EQ(file.size(), 44u + 1010u); // past the ring's end, not wrapped
    const int expected[10] = {-32768, -32768, 16384, 0, 32767, -1, 0, 0, 8192, -9830};
    for (int i = 0; i < 10; i++)
        EXPECT_EQ(WavFileOC::inputShort(file.data(), 44 + 990 + 2 * i), expected[i]) << i;

    // A second batch of another size reuses nothing stale.
    const float two[2] = {-0.5f, 0.125f};
    ASSERT_TRUE(wav.putFloats(two, 2, 0));
    double back[2];
    ASSERT_TRUE(wav.getSamples(back, 0, 2));
    EXPECT_EQ(back[0], -16384.0);
    EXPECT_EQ(back[1], 4096.0);
}

TEST_F(WavFileOCTest, finalizeRecordsTheDataLengthOnce)
{
    WavFileOC wav;
    ASSERT_TRUE(wav.setupWithSampleRate(44100.0, 2, 2, 4000));
    Bytes file = read(wav.getFilePath());
    ASSERT_EQ(file.size(), 44u);
    EXPECT_EQ(readLE32(file, 4), 36u);
    EXPECT_EQ(readLE32(file, 28), 44100u * 4);
    EXPECT_EQ(WavFileOC::inputShort(file.data(), 32), 4);
    EXPECT_EQ(WavFileOC::inputShort(file.data(), 34), 16);

    ASSERT_TRUE(wav.finalizeWithByteSize(1000));
    EXPECT_EQ(wav.getFileDataLength(), 1000);
    file = read(wav.getFilePath());
    EXPECT_EQ(readLE32(file, 4), 1036u);
    EXPECT_EQ(readLE32(file, 40), 1000u);

    // The same size again writes nothing: a mark placed in the field survives.
    {
        std::fstream patch(wav.getFilePath(), std::ios::in | std::ios::out | std::ios::binary);
        patch.seekp(4);
        patch.write("MARK", 4);
    }
    ASSERT_TRUE(wav.finalizeWithByteSize(1000));
    file = read(wav.getFilePath());
    EXPECT_EQ(std::string(file.begin() + 4, file.begin() + 8), "MARK");

    // A longer header has its data size field just before its data.
    WavImage image;
    image.formatSize = 20;
    image.data = Bytes(16, 0);
    const std::string path = write("long.wav", image.bytes());
    WavFileOC opened;
    ASSERT_TRUE(opened.setupFromPath(path));
    ASSERT_TRUE(opened.finalizeWithByteSize(12));
    file = read(path);
    EXPECT_EQ(readLE32(file, 4), 12u + 48u - 8u);
    EXPECT_EQ(readLE32(file, 44), 12u);
}

TEST_F(WavFileOCTest, copiesHeadersByteForByteAndDataInBoundedPieces)
{
    WavImage image;
    image.channels = 2;
    image.formatSize = 18;
    image.data.resize(100001);
    std::mt19937 generator(3);
    for (auto &byte : image.data)
        byte = static_cast<unsigned char>(generator());
    image.data.push_back(0); // RIFF pad byte, not part of the data
    image.dataSize = 100001;
    const std::string sourcePath = write("source.wav", image.bytes());
    WavFileOC source;
    ASSERT_TRUE(source.setupFromPath(sourcePath));

    // Within one file system the kernel copies; into another (memory-backed, where there is
    // one) the bytes come through here.
    std::vector<fs::path> folders = {dir};
    std::string shared = "/dev/shm/quorval-wav-XXXXXX";
    if (fs::is_directory("/dev/shm") && ::mkdtemp(shared.data()) != nullptr)
        folders.emplace_back(shared);
    for (const fs::path &folder : folders) {
        SCOPED_TRACE(folder.string());
        WavFileOC copy;
        const std::string copyPath = (folder / "copy.wav").string();
        ASSERT_TRUE(copy.setupFromWavFile(source, copyPath));
        EXPECT_EQ(copy.getFilePath(), copyPath);
        EXPECT_EQ(copy.getHeaderLength(), 46);
        EXPECT_EQ(copy.getFileDataLength(), 100001);
        EXPECT_EQ(copy.getNChannels(), 2);
        EXPECT_TRUE(copy.isVerified());
        EXPECT_EQ(fs::file_size(copyPath), 0u);
        ASSERT_TRUE(copy.copyHeadersFromWavFile(source));

        std::vector<int> pieces;
        int at = 0;
        while (int n = copy.copyDataFromWavFile(source, at, at, 1 << 30)) {
            pieces.push_back(n);
            at += n;
        }
        EXPECT_EQ(pieces, (std::vector<int>{32768, 32768, 32768, 1697}));
        EXPECT_EQ(copy.copyDataFromWavFile(source, 10, 0, 7), 7);
        EXPECT_EQ(copy.copyDataFromWavFile(source, 10, 10, 0), 0);

        Bytes expected = read(sourcePath);
        expected.pop_back();
        std::copy(expected.begin() + 46 + 10, expected.begin() + 46 + 17, expected.begin() + 46);
        EXPECT_EQ(read(copyPath), expected);
    }
    if (folders.size() > 1) {
        std::error_code error;
        fs::remove_all(folders.back(), error);
    }

    // Without a path the copy goes to the temporary directory.
    WavFileOC temporary;
    ASSERT_TRUE(temporary.setupFromWavFile(source, std::nullopt));
    EXPECT_EQ(fs::path(temporary.getFilePath()).parent_path(), dir);
    EXPECT_NE(temporary.getFilePath(), WavFileOC::createTempFilePath());
}

TEST_F(WavFileOCTest, statusDescribesTheFormatInItsOwnWords)
{
    // The text is the system's own, odd capital included.
    WavFileOC wav;
    EXPECT_EQ(wav.status(), "sampleRate 0.000000\nnChannels 0\nbytesPersample 0\nverified FALSE\n"
                            "FilePath ");
    ASSERT_TRUE(wav.setupWithSampleRate(22050.5, 2, 1, 10));
    EXPECT_EQ(wav.status(), "sampleRate 22050.500000\nnChannels 2\nbytesPersample 1\nverified "
                            "TRUE\nFilePath " +
                                wav.getFilePath());
}

} // namespace
} // namespace quorval
