#include "analysis/WavFileOC.h"

#include "analysis/Check.h"
#include "analysis/RegularFile.h"
#include "analysis/VolumeResultOC.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <random>
#include <sys/stat.h>
#include <sys/types.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace quorval {

// Samples go to and from the file as they lie in memory.
static_assert(std::endian::native == std::endian::little, "WAV samples are little-endian");

namespace {

constexpr std::int64_t kScratchBytes = 32768;
constexpr std::int64_t kInt32Max = std::numeric_limits<std::int32_t>::max();

void putLittleEndian32(unsigned char *bytes, std::uint32_t value)
{
    for (int i = 0; i < 4; i++)
        bytes[i] = static_cast<unsigned char>(value >> (8 * i));
}

// One double per frame of signed little-endian samples: the first channel's sample, or the
// mean of the first two. Mono gets its own loop, which the compiler can vectorise.
template <typename Sample>
void framesToDoubles(const unsigned char *bytes, double *out, int nFrames, int nChannels)
{
    if (nChannels == 1) {
        for (int f = 0; f < nFrames; f++) {
            Sample a;
            std::memcpy(&a, bytes + static_cast<std::size_t>(f) * sizeof a, sizeof a);
            out[f] = a;
        }
        return;
    }
    const std::size_t frameBytes = static_cast<std::size_t>(nChannels) * sizeof(Sample);
    for (int f = 0; f < nFrames; f++) {
        Sample ab[2];
        std::memcpy(ab, bytes + static_cast<std::size_t>(f) * frameBytes, sizeof ab);
        out[f] = (ab[0] + ab[1]) * 0.5;
    }
}

} // namespace

// ---- FileHandle

WavFileOC::FileHandle::FileHandle(FileHandle &&other) noexcept : fd(std::exchange(other.fd, -1)) {}

WavFileOC::FileHandle &WavFileOC::FileHandle::operator=(FileHandle &&other) noexcept
{
    if (this != &other) {
        if (fd >= 0)
            ::close(fd);
        fd = std::exchange(other.fd, -1);
    }
    return *this;
}

WavFileOC::FileHandle::~FileHandle()
{
    if (fd >= 0)
        ::close(fd);
}

namespace {

// Runs one transfer call step(done) (the bytes moved, 0 at the end, or -1 with errno) until
// count bytes are done, the end is reached or an error other than an interrupted call occurs.
// The bytes done, or -1 on an error.
template <typename Step> std::int64_t transferAll(std::int64_t count, Step &&step)
{
    std::int64_t done = 0;
    while (done < count) {
        const ssize_t moved = step(done);
        if (moved < 0) {
            if (errno == EINTR)
                continue;
            return -1;
        }
        if (moved == 0)
            break;
        done += moved;
    }
    return done;
}

} // namespace

std::int64_t WavFileOC::FileHandle::readAt(std::int64_t offset, unsigned char *bytes,
                                           std::int64_t count) const
{
    if (fd < 0 || offset < 0)
        return -1;
    return transferAll(count, [&](std::int64_t done) {
        return ::pread(fd, bytes + done, static_cast<std::size_t>(count - done),
                       static_cast<off_t>(offset + done));
    });
}

bool WavFileOC::FileHandle::writeAt(std::int64_t offset, const unsigned char *bytes,
                                    std::int64_t count) const
{
    if (fd < 0 || offset < 0)
        return false;
    // A write that moves nothing would never end: it counts as an error.
    return transferAll(count, [&](std::int64_t done) -> ssize_t {
               const ssize_t put =
                   ::pwrite(fd, bytes + done, static_cast<std::size_t>(count - done),
                            static_cast<off_t>(offset + done));
               if (put == 0)
                   errno = EIO;
               return put == 0 ? -1 : put;
           }) == count;
}

std::int64_t WavFileOC::FileHandle::copyAt(std::int64_t offset, const FileHandle &source,
                                           std::int64_t from, std::int64_t count) const
{
    if (fd < 0 || source.fd < 0 || offset < 0 || from < 0)
        return -1;
    auto in = static_cast<off_t>(from);
    auto out = static_cast<off_t>(offset);
    return transferAll(count, [&](std::int64_t done) {
        return ::copy_file_range(source.fd, &in, fd, &out, static_cast<std::size_t>(count - done),
                                 0);
    });
}

// ---- Set-up

bool WavFileOC::setupWithSampleRate(double newSampleRate, int newNChannels, int newBytesPerSample,
                                    int newMaxDataBytes, const std::optional<std::string> &path,
                                    Access access)
{
    QUORVAL_CHECK(newSampleRate >= 1.0 && newSampleRate <= static_cast<double>(kInt32Max));
    QUORVAL_CHECK(newNChannels == 1 || newNChannels == 2);
    QUORVAL_CHECK(newBytesPerSample == 1 || newBytesPerSample == 2);
    QUORVAL_CHECK(newMaxDataBytes >= 0);
    sampleRate = newSampleRate;
    nChannels = newNChannels;
    bytesPerSample = newBytesPerSample;
    maxDataBytes = newMaxDataBytes;
    if (!createWavFileAtPath(path ? *path : createTempFilePath(), access))
        return false;

    headerLength = kHeaderLength;
    fileDataLength = 0;
    headerCursor = 0;
    outputInt(static_cast<std::int32_t>(kRiff));
    outputInt(kHeaderLength - 8);
    outputInt(static_cast<std::int32_t>(kWave));
    outputInt(static_cast<std::int32_t>(kFmt));
    outputInt(16);
    outputShort(1);
    outputShort(static_cast<std::int16_t>(nChannels));
    outputInt(static_cast<std::int32_t>(sampleRate));
    outputInt(static_cast<std::int32_t>(
        static_cast<std::int64_t>(sampleRate * nChannels * bytesPerSample)));
    outputShort(static_cast<std::int16_t>(bytesPerSample * nChannels));
    outputShort(static_cast<std::int16_t>(bytesPerSample * 8));
    outputInt(static_cast<std::int32_t>(kData));
    outputInt(fileDataLength);
    QUORVAL_CHECK(headerCursor == kHeaderLength);
    if (!writeHandle.writeAt(0, header, kHeaderLength)) {
        reason = reasonOf(errno);
        return false;
    }
    verified = true;
    return true;
}

bool WavFileOC::setupFromPath(const std::string &path)
{
    filePath = path;
    if (!openHandles(false, Access::ownerOnly))
        return false;

    unsigned char riff[20];
    if (readHandle.readAt(0, riff, 20) != 20)
        return false;
    if (inputLong(riff, 0) != kRiff || inputLong(riff, 8) != kWave || inputLong(riff, 12) != kFmt)
        return false;
    const std::uint32_t riffSize = inputLong(riff, 4);
    const std::uint32_t formatSize = inputLong(riff, 16);
    if (formatSize < 16)
        return true; // unverified: the caller leaves it to a decoder

    // The fields lie in the first 16 bytes of the format body; any further bytes are skipped
    // here (copyHeadersFromWavFile keeps them) and are never read into memory.
    unsigned char format[16];
    if (readHandle.readAt(20, format, 16) != 16)
        return false;
    if (inputShort(format, 0) != 1)
        return false;
    const int channels = inputShort(format, 2);
    nChannels = channels;
    const std::uint32_t rate = inputLong(format, 4);
    const std::uint32_t byteRate = inputLong(format, 8);
    const int blockAlign = inputShort(format, 12);
    const int bits = inputShort(format, 14);
    bytesPerSample = (bits - 1) / 8 + 1;

    if (channels < 1)
        return false;
    // 32-bit product, wrapping as such.
    if (byteRate != rate * static_cast<std::uint32_t>(blockAlign))
        return false;
    if (static_cast<std::int32_t>(rate) < 0)
        return false;
    if (channels > 2)
        return false;
    if (bits > 16)
        return false;
    if (static_cast<std::int16_t>((blockAlign / channels) * 8) != bits)
        return false;
    // The checks above pass 0 bits (with a block align of 0) and, read as a signed number, a
    // negative count: neither is 8- or 16-bit sound, and a size of 0 or less per sample would
    // spoil every frame count.
    if (bits < 1)
        return false;

    const std::int64_t newHeaderLength = static_cast<std::int64_t>(formatSize) + 28;
    if (newHeaderLength > kInt32Max)
        return false;
    sampleRate = static_cast<double>(rate);
    headerLength = static_cast<int>(newHeaderLength);

    unsigned char chunk[8];
    if (readHandle.readAt(newHeaderLength - 8, chunk, 8) != 8)
        return false;
    if (inputLong(chunk, 0) != kData)
        return false;
    const std::uint32_t dataSize = inputLong(chunk, 4);
    if (dataSize > kInt32Max)
        return false;
    fileDataLength = static_cast<int>(dataSize);
    if (static_cast<std::int64_t>(dataSize) >
        static_cast<std::int64_t>(riffSize) + 8 - headerLength)
        return false;

    maxDataBytes = fileDataLength;
    verified = true;
    return true;
}

bool WavFileOC::setupFromWavFile(const WavFileOC &source, const std::optional<std::string> &path,
                                 Access access)
{
    if (!createWavFileAtPath(path ? *path : createTempFilePath(), access))
        return false;
    sampleRate = source.sampleRate;
    nChannels = source.nChannels;
    bytesPerSample = source.bytesPerSample;
    headerLength = source.headerLength;
    fileDataLength = source.fileDataLength;
    maxDataBytes = source.maxDataBytes;
    verified = true;
    return true;
}

std::string WavFileOC::createTempFilePath()
{
    std::error_code error;
    std::filesystem::path directory = std::filesystem::temp_directory_path(error);
    if (error)
        directory = "/tmp";

    // A version 4 (random) UUID.
    std::random_device device;
    unsigned char bytes[16];
    for (int i = 0; i < 16; i += 4) {
        const std::uint32_t word = device();
        putLittleEndian32(bytes + i, word);
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
    std::string uuid;
    static constexpr char kHex[] = "0123456789ABCDEF";
    for (int i = 0; i < 16; i++) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            uuid += '-';
        uuid += kHex[bytes[i] >> 4];
        uuid += kHex[bytes[i] & 0x0F];
    }
    return (directory / (uuid + ".wav")).string();
}

bool WavFileOC::createWavFileAtPath(const std::string &path, Access access)
{
    filePath = path;
    return openHandles(true, access);
}

bool WavFileOC::copyPermissionsFrom(const std::string &path) const
{
    struct stat status
    {
    };
    if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    return ::fchmod(writeHandle.descriptor(), status.st_mode & 0777) == 0;
}

bool WavFileOC::openHandles(bool create, Access access)
{
    reason.clear();
    if (create) {
        // The mode is given at creation, so the file is never readable by others for a moment.
        const mode_t mode = access == Access::ownerOnly ? 0600 : 0666;
        writeHandle =
            FileHandle(::open(filePath.c_str(), O_RDWR | O_CLOEXEC | O_CREAT | O_TRUNC, mode));
        if (!writeHandle.isOpen()) {
            reason = reasonOf(errno);
            return false;
        }
        // A file of that name made earlier keeps its mode through O_TRUNC.
        if (access == Access::ownerOnly && ::fchmod(writeHandle.descriptor(), mode) != 0) {
            reason = reasonOf(errno);
            return false;
        }
        readHandle = FileHandle(::open(filePath.c_str(), O_RDONLY | O_CLOEXEC));
        if (!readHandle.isOpen())
            reason = reasonOf(errno);
        return readHandle.isOpen();
    }
    // Only a regular file is read: a FIFO or a device could block or never end.
    readHandle = FileHandle(openRegularFile(filePath, O_RDONLY, reason));
    if (!readHandle.isOpen())
        return false;
    // A file the user may only read still opens; every write to it then fails.
    std::string ignored;
    writeHandle = FileHandle(openRegularFile(filePath, O_RDWR, ignored));
    struct stat read
    {
    };
    struct stat written
    {
    };
    if (writeHandle.isOpen() && (::fstat(readHandle.descriptor(), &read) != 0 ||
                                 ::fstat(writeHandle.descriptor(), &written) != 0 ||
                                 read.st_ino != written.st_ino || read.st_dev != written.st_dev))
        writeHandle = FileHandle();
    return true;
}

void WavFileOC::outputInt(std::int32_t value)
{
    QUORVAL_CHECK(headerCursor + 4 <= kHeaderLength);
    putLittleEndian32(header + headerCursor, static_cast<std::uint32_t>(value));
    headerCursor += 4;
}

void WavFileOC::outputShort(std::int16_t value)
{
    QUORVAL_CHECK(headerCursor + 2 <= kHeaderLength);
    const auto bits = static_cast<std::uint16_t>(value);
    header[headerCursor] = static_cast<unsigned char>(bits);
    header[headerCursor + 1] = static_cast<unsigned char>(bits >> 8);
    headerCursor += 2;
}

std::uint32_t WavFileOC::inputLong(const unsigned char *bytes, int byteOffset)
{
    const unsigned char *p = bytes + byteOffset;
    return static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
           static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}

int WavFileOC::inputShort(const unsigned char *bytes, int byteOffset)
{
    const unsigned char *p = bytes + byteOffset;
    return static_cast<std::int16_t>(static_cast<std::uint16_t>(p[0] | p[1] << 8));
}

// ---- Copying

bool WavFileOC::copyHeadersFromWavFile(const WavFileOC &source)
{
    unsigned char *buffer = scratchBytes();
    for (std::int64_t offset = 0; offset < headerLength;) {
        const std::int64_t want = std::min<std::int64_t>(headerLength - offset, kScratchBytes);
        if (source.readHandle.readAt(offset, buffer, want) != want)
            return false;
        if (!writeHandle.writeAt(offset, buffer, want))
            return false;
        offset += want;
    }
    return true;
}

int WavFileOC::copyDataFromWavFile(const WavFileOC &source, int fromByteLoc, int toByteLoc,
                                   int maxBytes)
{
    QUORVAL_CHECK(fromByteLoc >= 0 && toByteLoc >= 0);
    const std::int64_t n = std::min<std::int64_t>(
        {maxBytes, static_cast<std::int64_t>(source.fileDataLength) - fromByteLoc, kMaxCopyBytes});
    if (n <= 0)
        return 0;
    // Inside the kernel where the file systems allow it: the bytes never pass through here.
    const std::int64_t moved =
        writeHandle.copyAt(std::int64_t{headerLength} + toByteLoc, source.readHandle,
                           std::int64_t{source.headerLength} + fromByteLoc, n);
    if (moved > 0)
        return static_cast<int>(moved);
    unsigned char *buffer = scratchBytes();
    const std::int64_t got =
        source.readHandle.readAt(std::int64_t{source.headerLength} + fromByteLoc, buffer, n);
    if (got <= 0)
        return 0;
    if (!writeHandle.writeAt(std::int64_t{headerLength} + toByteLoc, buffer, got))
        return 0;
    return static_cast<int>(got);
}

// ---- Writing

std::int64_t WavFileOC::ringFirstPiece(int byteLoc, std::int64_t count) const
{
    QUORVAL_CHECK(byteLoc >= 0 && count >= 0);
    if (byteLoc + count <= maxDataBytes)
        return count;
    QUORVAL_CHECK(byteLoc <= maxDataBytes);
    return maxDataBytes - byteLoc;
}

bool WavFileOC::writeRing(const unsigned char *bytes, std::int64_t count, int byteLoc)
{
    const std::int64_t first = ringFirstPiece(byteLoc, count);
    return writeHandle.writeAt(std::int64_t{headerLength} + byteLoc, bytes, first) &&
           (first == count || writeHandle.writeAt(headerLength, bytes + first, count - first));
}

bool WavFileOC::putSamples(const std::int16_t *samples, int size, int byteLoc)
{
    QUORVAL_CHECK(size >= 0);
    return writeRing(reinterpret_cast<const unsigned char *>(samples), 2 * std::int64_t{size},
                     byteLoc);
}

bool WavFileOC::putFloats(const float *floats, int size, int byteLoc)
{
    QUORVAL_CHECK(size >= 0 && byteLoc >= 0);
    sampleData.resize(static_cast<std::size_t>(size));
    constexpr double kLow = std::numeric_limits<std::int32_t>::min();
    constexpr double kHigh = std::numeric_limits<std::int32_t>::max();
    for (int i = 0; i < size; i++) {
        const double scaled = static_cast<double>(floats[i]) * 32768.0;
        std::int32_t whole = 0;
        if (scaled >= kHigh)
            whole = std::numeric_limits<std::int32_t>::max();
        else if (scaled <= kLow)
            whole = std::numeric_limits<std::int32_t>::min();
        else if (scaled == scaled)
            whole = static_cast<std::int32_t>(scaled); // truncates toward zero; NaN stays 0
        sampleData[static_cast<std::size_t>(i)] = static_cast<std::int16_t>(
            static_cast<std::uint16_t>(static_cast<std::uint32_t>(whole)));
    }
    return writeHandle.writeAt(std::int64_t{headerLength} + byteLoc,
                               reinterpret_cast<const unsigned char *>(sampleData.data()),
                               2 * std::int64_t{size});
}

bool WavFileOC::finalizeWithByteSize(int byteSize)
{
    QUORVAL_CHECK(byteSize >= 0);
    if (byteSize == fileDataLength)
        return true;
    if (headerLength < 8)
        return false;
    fileDataLength = byteSize;
    unsigned char field[4];
    putLittleEndian32(field,
                      static_cast<std::uint32_t>(std::int64_t{fileDataLength} + headerLength - 8));
    if (!writeHandle.writeAt(4, field, 4))
        return false;
    putLittleEndian32(field, static_cast<std::uint32_t>(fileDataLength));
    return writeHandle.writeAt(headerLength - 4, field, 4);
}

// ---- Reading

unsigned char *WavFileOC::scratchBytes()
{
    if (scratch.empty())
        scratch.resize(static_cast<std::size_t>(kScratchBytes));
    return scratch.data();
}

bool WavFileOC::usableFormat() const
{
    return nChannels >= 1 && (bytesPerSample == 1 || bytesPerSample == 2);
}

bool WavFileOC::readFrames(std::int64_t fileOffset, std::int64_t nFrames, double *out)
{
    const std::int64_t frameBytes = std::int64_t{nChannels} * bytesPerSample;
    const std::int64_t chunkFrames = std::max<std::int64_t>(1, kScratchBytes / frameBytes);
    if (frameBytes > kScratchBytes)
        scratch.resize(static_cast<std::size_t>(frameBytes));
    unsigned char *buffer = scratchBytes();
    bool ok = true;
    std::int64_t done = 0;
    while (done < nFrames) {
        const std::int64_t want = std::min(nFrames - done, chunkFrames) * frameBytes;
        const std::int64_t got = readHandle.readAt(fileOffset + done * frameBytes, buffer, want);
        if (got < 0) {
            ok = false;
            break;
        }
        const std::int64_t whole = got / frameBytes;
        storeSamples(buffer, out + done, static_cast<int>(whole));
        done += whole;
        if (got < want)
            break;
    }
    std::fill(out + done, out + nFrames, 0.0);
    return ok;
}

bool WavFileOC::getSamples(double *out, int byteLoc, int nFrames)
{
    QUORVAL_CHECK(byteLoc >= 0);
    if (nFrames <= 0)
        return true;
    if (!usableFormat()) {
        std::fill(out, out + nFrames, 0.0);
        return true;
    }
    const std::int64_t frameBytes = std::int64_t{nChannels} * bytesPerSample;
    const std::int64_t start = std::int64_t{headerLength} + byteLoc;
    // A frame cut by the ring's end is not read; the rest starts whole at the first data byte.
    const std::int64_t firstFrames = ringFirstPiece(byteLoc, frameBytes * nFrames) / frameBytes;
    if (firstFrames == nFrames)
        return readFrames(start, nFrames, out);
    const bool firstOk = readFrames(start, firstFrames, out);
    const bool restOk = readFrames(headerLength, nFrames - firstFrames, out + firstFrames);
    return firstOk && restOk;
}

void WavFileOC::storeSamples(const unsigned char *bytes, double *samplePtr, int nFrames) const
{
    if (nChannels < 1)
        return;
    if (bytesPerSample == 1)
        framesToDoubles<std::int8_t>(bytes, samplePtr, nFrames, nChannels);
    else if (bytesPerSample == 2)
        framesToDoubles<std::int16_t>(bytes, samplePtr, nFrames, nChannels);
}

double WavFileOC::sumOfSquares(const unsigned char *bytes, int size, VolumeResultOC &result) const
{
    double sum = 0.0;
    if (bytesPerSample != 1 && bytesPerSample != 2)
        return sum;
    double least = result.getMin();
    double greatest = result.getMax();
    for (int i = 0; i < size; i++) {
        const double v = bytesPerSample == 1
                             ? static_cast<double>(static_cast<signed char>(bytes[i]))
                             : static_cast<double>(inputShort(bytes, 2 * i));
        if (least > v)
            least = v;
        if (greatest < v)
            greatest = v;
        sum += v * v;
    }
    result.setMin(least);
    result.setMax(greatest);
    return sum;
}

bool WavFileOC::addSquares(std::int64_t fileOffset, std::int64_t count, VolumeResultOC &result,
                           double &sum)
{
    const std::int64_t chunkBytes = kScratchBytes / bytesPerSample * bytesPerSample;
    unsigned char *buffer = scratchBytes();
    for (std::int64_t done = 0; done < count;) {
        const std::int64_t want = std::min(count - done, chunkBytes);
        const std::int64_t got = readHandle.readAt(fileOffset + done, buffer, want);
        if (got < 0)
            return false;
        sum += sumOfSquares(buffer, static_cast<int>(got / bytesPerSample), result);
        done += got;
        if (got < want)
            break;
    }
    return true;
}

void WavFileOC::getVolume(int byteLoc, int nFrames, VolumeResultOC &result)
{
    QUORVAL_CHECK(byteLoc >= 0);
    result.clear();
    if (nFrames <= 0 || !usableFormat())
        return;
    const std::int64_t samples = std::int64_t{nChannels} * nFrames;
    const std::int64_t bytes = samples * bytesPerSample;
    const std::int64_t first = ringFirstPiece(byteLoc, bytes);
    double sum = 0.0;
    (void)addSquares(std::int64_t{headerLength} + byteLoc, first, result, sum);
    (void)addSquares(headerLength, bytes - first, result, sum); // nothing unless it wraps
    result.setRMS(std::sqrt(sum / static_cast<double>(samples)));
}

// ---- Description

std::string WavFileOC::status() const
{
    char rate[64];
    std::snprintf(rate, sizeof rate, "%f", sampleRate);
    return "sampleRate " + std::string(rate) + "\nnChannels " + std::to_string(nChannels) +
           "\nbytesPersample " + std::to_string(bytesPerSample) + "\nverified " +
           (verified ? "TRUE" : "FALSE") + "\nFilePath " + filePath;
}

void WavFileOC::setMaxByteLength(int maxBytes)
{
    QUORVAL_CHECK(maxBytes >= 0);
    maxDataBytes = maxBytes;
}

} // namespace quorval
