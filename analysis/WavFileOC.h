#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quorval {

class VolumeResultOC;

// A PCM WAV sound file on disk, read and written in place through two file handles; the sound
// is never held in memory. Layout written (little-endian): "RIFF", RIFF size, "WAVE", "fmt ",
// 16, format 1, channels, rate, byte rate, block align, bits, "data", data size, then
// interleaved signed samples: 44 header bytes in all. Files read: 8- or 16-bit PCM, mono or
// stereo, with the "data" chunk directly after the "fmt " chunk.
//
// Units: a byte location is an offset into the sample data counted from its first data byte
// (the file offset is headerLength + location); a frame is nChannels × bytesPerSample bytes.
// Samples are handed out as raw integers converted to double (8-bit as signed -128..127,
// 16-bit as -32768..32767), never scaled. The data region may be used as a ring of
// maxDataBytes bytes: putSamples, getSamples and getVolume wrap at its end.
//
// Failures: set-up operations return false (missing file, file that cannot be created, header
// refused) and never print; the handles opened before a refusal stay attached. Reads past the
// end of the file yield fewer bytes: frames that did not come are 0.0.
//
// Threading: not synchronised; one thread at a time per object. Objects share no state.
// Ownership: the object owns its handles and buffers; it never deletes its file, temporary or
// not.
class WavFileOC
{
public:
    // Who may read a file this object creates. Working files and recordings hold what the user
    // played: nobody else reads them. A file written for the user gets what the umask allows,
    // like any file the user makes.
    enum class Access
    {
        ownerOnly,     // 0600
        asUmaskAllows, // 0666 less the umask
    };

    // Chunk identifiers as little-endian 32-bit words.
    static constexpr std::uint32_t kRiff = 0x46464952;
    static constexpr std::uint32_t kWave = 0x45564157;
    static constexpr std::uint32_t kFmt = 0x20746D66;
    static constexpr std::uint32_t kData = 0x61746164;
    static constexpr int kHeaderLength = 44;
    // The most bytes copyDataFromWavFile moves in one call.
    static constexpr int kMaxCopyBytes = 32768;

    // A fresh object: not verified, no buffer, no file.
    WavFileOC() = default;
    WavFileOC(const WavFileOC &) = delete;
    WavFileOC &operator=(const WavFileOC &) = delete;
    WavFileOC(WavFileOC &&) noexcept = default;
    WavFileOC &operator=(WavFileOC &&) noexcept = default;
    ~WavFileOC() = default;

    // Makes a new, empty WAV file at path (a temporary path when none is given) and writes its
    // 44-byte header. sampleRate in Hz (1 .. 2^31 - 1), nChannels 1 or 2, bytesPerSample 1 or
    // 2, maxDataBytes ≥ 0 the ring capacity; other values are broken invariants. False when the
    // file cannot be created or the header cannot be written (failureReason() says why).
    [[nodiscard]] bool setupWithSampleRate(double sampleRate, int nChannels, int bytesPerSample,
                                           int maxDataBytes,
                                           const std::optional<std::string> &path = std::nullopt,
                                           Access access = Access::ownerOnly);

    // Opens an existing WAV file and checks its header. Anything but a regular file is refused
    // without blocking (failureReason() says "not a regular file", or why it cannot be opened). A
    // format body shorter than 16 bytes is accepted at once without reading any format, so that a
    // caller finding the object unverified (every format field 0) hands the file to a decoder
    // instead of refusing it. A file that can be read but not written opens, and every write to it
    // fails. The checks do not bound bits per sample from below: 0 bits (block align < channels)
    // passes as 8-bit, negative bits as a format that reads as silence.
    [[nodiscard]] bool setupFromPath(const std::string &path);

    // Makes a new file (at path, or at a temporary path) that is to become a copy of source and
    // takes source's format fields; writes nothing. Follow with copyHeadersFromWavFile and
    // copyDataFromWavFile.
    [[nodiscard]] bool setupFromWavFile(const WavFileOC &source,
                                        const std::optional<std::string> &path,
                                        Access access = Access::ownerOnly);

    // "<system temporary directory>/<random UUID>.wav"; the directory is TMPDIR or /tmp.
    [[nodiscard]] static std::string createTempFilePath();

    // Stores path, creates an empty file there (replacing one of that name) and opens the
    // handles on it.
    [[nodiscard]] bool createWavFileAtPath(const std::string &path,
                                           Access access = Access::ownerOnly);

    // Gives the file this object created the permission bits of the regular file at path (the
    // file it is about to replace). False when path is no regular file or they cannot be set.
    [[nodiscard]] bool copyPermissionsFrom(const std::string &path) const;

    // Why the last set-up failed, in a few lower-case words for the user ("the disk is full", "not
    // a regular file (a FIFO)"); empty when the file was refused for its contents. disk", "not a
    // regular file (a FIFO)"); empty when the file was refused for its contents.
    [[nodiscard]] const std::string &failureReason() const { return reason; }

    // Little-endian field readers: 32-bit unsigned, and 16-bit signed widened with its sign.
    [[nodiscard]] static std::uint32_t inputLong(const unsigned char *bytes, int byteOffset);
    [[nodiscard]] static int inputShort(const unsigned char *bytes, int byteOffset);

    // Copies the first headerLength bytes of source's file unchanged to the start of this file.
    [[nodiscard]] bool copyHeadersFromWavFile(const WavFileOC &source);

    // Copies n = min(maxBytes, source fileDataLength - fromByteLoc, kMaxCopyBytes) bytes from
    // source's data at fromByteLoc to this file's data at toByteLoc and returns the bytes
    // copied: fewer than n if source's file ends early, 0 when nothing more can be copied
    // (or on an I/O error). The caller advances both locations and stops at 0.
    [[nodiscard]] int copyDataFromWavFile(const WavFileOC &source, int fromByteLoc, int toByteLoc,
                                          int maxBytes);

    // Writes size 16-bit samples at byteLoc ≥ 0, wrapping at maxDataBytes to the first data
    // byte. Does not change fileDataLength. False if a write failed.
    [[nodiscard]] bool putSamples(const std::int16_t *samples, int size, int byteLoc);

    // Converts size floats to 16-bit samples (× 32768, truncated toward zero to 32 bits with
    // saturation, low 16 bits kept: +1.0 becomes -32768) and writes them at byteLoc ≥ 0 in one
    // piece, without wrapping. False if the write failed.
    [[nodiscard]] bool putFloats(const float *floats, int size, int byteLoc);

    // Records byteSize ≥ 0 as the data length in the header (RIFF size and data size fields).
    // Nothing is written when it equals fileDataLength. False if a write failed or there is no
    // header to update.
    [[nodiscard]] bool finalizeWithByteSize(int byteSize);

    // Reads nFrames frames at byteLoc (0 .. maxDataBytes) with the ring wrap and stores one
    // double per frame into out (see storeSamples). Frames beyond the end of the file, and all
    // frames of an unusable format, become 0.0. False only on an I/O error.
    [[nodiscard]] bool getSamples(double *out, int byteLoc, int nFrames);

    // One double per frame from raw frames: the first channel's signed sample, or with two or
    // more channels the mean (a + b) × 0.5 of the first two. Integer units. Writes nothing
    // unless bytesPerSample is 1 or 2 and nChannels ≥ 1.
    void storeSamples(const unsigned char *bytes, double *samplePtr, int nFrames) const;

    // Least, greatest and RMS of every channel sample of nFrames frames at byteLoc (ring wrap as
    // getSamples), in integer units. With no samples the result stays cleared (rms 0).
    // Samples beyond the end of the file count as absent zeros in the RMS.
    void getVolume(int byteLoc, int nFrames, VolumeResultOC &result);

    // Updates result's min and max with size signed samples of bytesPerSample bytes and returns
    // the sum of their squares; for other sample sizes returns 0 and touches nothing.
    double sumOfSquares(const unsigned char *bytes, int size, VolumeResultOC &result) const;

    // "sampleRate %f\nnChannels %d\nbytesPersample %d\nverified %@\nFilePath %@".
    [[nodiscard]] std::string status() const;

    [[nodiscard]] const std::string &getFilePath() const { return filePath; }
    [[nodiscard]] int getNChannels() const { return nChannels; }
    [[nodiscard]] int getBytesPerSample() const { return bytesPerSample; }
    [[nodiscard]] int getFileDataLength() const { return fileDataLength; }
    [[nodiscard]] double getSampleRate() const { return sampleRate; }
    [[nodiscard]] int getHeaderLength() const { return headerLength; }
    [[nodiscard]] int getMaxDataBytes() const { return maxDataBytes; }
    [[nodiscard]] bool isVerified() const { return verified; }
    // Sets the ring capacity in bytes (≥ 0).
    void setMaxByteLength(int maxBytes);

private:
    // An owned POSIX file descriptor; -1 when none.
    class FileHandle
    {
    public:
        FileHandle() = default;
        explicit FileHandle(int fd) : fd(fd) {}
        FileHandle(const FileHandle &) = delete;
        FileHandle &operator=(const FileHandle &) = delete;
        FileHandle(FileHandle &&other) noexcept;
        FileHandle &operator=(FileHandle &&other) noexcept;
        ~FileHandle();

        [[nodiscard]] bool isOpen() const { return fd >= 0; }
        [[nodiscard]] int descriptor() const { return fd; }
        // Reads up to count bytes at offset; the bytes read (fewer at the end of the file), or
        // -1 on an error.
        [[nodiscard]] std::int64_t readAt(std::int64_t offset, unsigned char *bytes,
                                          std::int64_t count) const;
        // Writes all count bytes at offset; false on an error.
        [[nodiscard]] bool writeAt(std::int64_t offset, const unsigned char *bytes,
                                   std::int64_t count) const;
        // Copies up to count bytes of source at from to offset to here inside the kernel; the
        // bytes copied (fewer at the end of the source), or -1 when the files cannot be copied
        // that way or on an error.
        [[nodiscard]] std::int64_t copyAt(std::int64_t offset, const FileHandle &source,
                                          std::int64_t from, std::int64_t count) const;

    private:
        int fd = -1;
    };

    [[nodiscard]] bool openHandles(bool create, Access access);
    void outputInt(std::int32_t value);
    void outputShort(std::int16_t value);
    [[nodiscard]] bool usableFormat() const;
    // Converts nFrames whole frames read at file offset into out; frames not read become 0.0.
    [[nodiscard]] bool readFrames(std::int64_t fileOffset, std::int64_t nFrames, double *out);
    // Adds the squares of the samples of count bytes at fileOffset to sum, updating result.
    [[nodiscard]] bool addSquares(std::int64_t fileOffset, std::int64_t count,
                                  VolumeResultOC &result, double &sum);
    // The bytes of count bytes at byteLoc that lie before the ring's end: count, or less when
    // they wrap and the rest continues at the first data byte.
    [[nodiscard]] std::int64_t ringFirstPiece(int byteLoc, std::int64_t count) const;
    [[nodiscard]] bool writeRing(const unsigned char *bytes, std::int64_t count, int byteLoc);
    unsigned char *scratchBytes();

    double sampleRate = 0.0;
    int nChannels = 0;
    int bytesPerSample = 0;
    bool verified = false;
    std::string filePath;
    std::string reason; // why the last set-up failed
    int headerLength = 0;
    int fileDataLength = 0;
    int maxDataBytes = 0;
    FileHandle readHandle;
    FileHandle writeHandle;
    std::vector<std::int16_t> sampleData; // putFloats' converted samples

    // The header being assembled by outputInt/outputShort, and its cursor.
    unsigned char header[kHeaderLength] = {};
    int headerCursor = 0;
    // Read buffer of kScratchBytes bytes, allocated on first use.
    std::vector<unsigned char> scratch;
};

} // namespace quorval
