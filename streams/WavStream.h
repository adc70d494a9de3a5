#pragma once

#include "analysis/VolumeResultOC.h"
#include "analysis/WavFileOC.h"
#include "streams/DataStream.h"

#include <sndfile.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace quorval {

class MusicStream;

// The stream of sound samples of one document: index = frame number, x = seconds. It works on a
// WAV file of its own in the temporary folder (a new one for a recording, a working copy of an
// opened file), never on the user's file, which is only read.
//
// Frame f lies at byte location (f mod maxFrames) × bytesPerFrame of the working file's data:
// the data region is a ring of maxFrames frames. The extent is [minIndex, maxIndex): frames
// held; while a recording wraps it is the newest maxFrames frames.
//
// Values are raw integer samples; the nominal range is ±2^(bits - 1) (±32768 for 16-bit sound).
// Threading: every read and write of the sound file runs on the data queue (methods ending in
// _D); the public methods take it themselves. Main-thread fields say so. User-visible failures
// go through showMessage with the system's texts; the factories then answer nullptr.
class WavStream : public DoubleStream
{
public:
    // Max frames held: option "Max audio file length (minutes)" × 60 × sampleRate.
    // A new, empty sound for recording; "Can't create .wav file -- internal error" on failure.
    // channels 1 or 2, bytesPerSample 1 or 2, sampleRate in Hz. With a path the sound file is
    // made there instead of in the temporary folder (a tool recording straight into a file).
    static std::shared_ptr<WavStream>
    createForRecording(int channels, int bytesPerSample, double sampleRate,
                       const std::optional<std::string> &path = std::nullopt);

    // The lowest sample rate accepted, in Hz: below it the analysis cannot cut the sound into
    // segments of a useful length at any note range.
    static constexpr double kMinSampleRate = 1000.0;

    // Opens a sound file. A WAV file the reader takes gets a working copy whose data is copied on
    // the "copy" queue in pieces; anything else the decoder opens (24-bit, float or extensible
    // WAV, a WAV with other chunks before the data, MP3, FLAC, Ogg, AIFF) is decoded there into a
    // mono 16-bit working file, channels mixed as their mean. Either way the extent grows as the
    // pieces land and copying is set meanwhile (waitForCopy() waits for the end). "Can't read
    // sound file" when neither can open it, a message naming the rate when the rate is below
    // kMinSampleRate. Warnings (showWarning): a header that promises more sound than the file
    // holds, a frame limit beyond what a WAV file holds, the file changing while it is copied.
    // Main thread (or a tool's).
    static std::shared_ptr<WavStream> createFromFile(const std::string &path);

    ~WavStream() override;

    // Set at creation, then constant.
    const bool copyOnRead = true;
    std::int64_t maxFrames = 0;     // ring length in frames
    std::int32_t bytesPerFrame = 2; // channels × bytes per sample
    bool isSetup = false;
    std::string fileURL = "/"; // the working sound file
    bool openedFromFile = false;

    // The opened file as it is on disk (for a recording, the working file).
    struct SourceFormat
    {
        int channels = 0;
        int bytesPerSample = 0; // 0 for a compressed format
        double sampleRate = 0.0;
        std::int64_t frames = 0;
        bool converted = false; // the working copy is mono 16-bit, converted from it
    };
    SourceFormat sourceFormat;

    // The owning music stream, told when the sound grows. Any thread.
    void setParent(const std::shared_ptr<MusicStream> &music);
    [[nodiscard]] std::shared_ptr<MusicStream> parentStream() const;

    // Main thread.
    std::optional<std::string> saveURL; // where save() writes; empty for a sound never saved
    std::string fileTitle;              // "New File", or the opened file's name
    std::atomic<bool> modified{false};  // unsaved changes exist
    std::atomic<bool> copying{false};   // a copy into the sound file is under way
    std::atomic<std::int64_t> savedMaxFileIndex{0}; // maxIndex at the last save
    // The opened file's size or modification time differed after its copy: the sound may mix
    // old and new content. Any thread.
    std::atomic<bool> changedWhileCopying{false};

    // An opened file whose copy is complete: its extent is final. Data queue.
    [[nodiscard]] bool isWholeFile_D() const { return openedFromFile && !copying; }

    [[nodiscard]] double sampleRate() const { return 1.0 / xScale; }
    [[nodiscard]] int nChannels() const { return channels; }
    [[nodiscard]] int bytesPerSample() const { return sampleBytes; }

    // Byte location in the sound file's data of frame f >= 0. Any thread.
    [[nodiscard]] int byteLocOf(std::int64_t frame) const;

    // The working sound file. Data queue only.
    [[nodiscard]] WavFileOC &wavFile_D() { return *wavFile; }

    // Least, greatest and RMS sample (integer units, every channel sample counted) of nFrames
    // frames from firstFrame. Data queue only / any other thread.
    [[nodiscard]] VolumeResultOC volume_D(std::int64_t firstFrame, std::int64_t nFrames);
    [[nodiscard]] VolumeResultOC volume(std::int64_t firstFrame, std::int64_t nFrames);

    // Appends 16-bit interleaved frames at the end (recording): written on the data queue in
    // arrival order, the extent moving forward and wrapping in the ring, the header kept
    // current so that a crash loses nothing. Then the parent music stream is told. The samples
    // are written from where they lie, so the caller's buffer is free again on return. Answers
    // false when the write failed (disk full, file size limit, folder gone): the extent then
    // stays at what was written before. Any thread but the data queue (the "realtime" queue).
    [[nodiscard]] bool appendSamples(std::span<const std::int16_t> samples);
    // The same on the data queue, without telling the parent. Answers false on a write error.
    bool appendSamples_D(const std::int16_t *samples, std::int64_t nFrames);

    // Writes the sound held to saveURL (save) or to path, which becomes saveURL (saveAs). A new
    // file is written beside the target and renamed over it only when complete, so a failure
    // ("Can't save sound file") leaves the existing file as it was; a FIFO or a device is written
    // through instead, and a folder refused. Runs after any copy under
    // way. save() without a saveURL answers false and shows nothing: the caller asks for a path
    // and uses saveAs(). Main thread; answers success.
    bool save();
    bool saveAs(const std::string &path);
    // Writes frames [first, end) (clamped to those held) to path as save() writes, without
    // making path the sound's own: a selection exported. Main thread; answers success.
    bool exportFrames(const std::string &path, std::int64_t first, std::int64_t end);

    // "Number of channels %d\nBytes per sample %d\nFrame rate %.0f\nLength %.2f minutes (M:SS.s)
    // \nMax length %.2f minutes" of the file as it is (its own channels and sample size), then
    // "\nConverted to 1 channel, 2 bytes per sample for analysis" when the working copy was
    // converted. Any thread but the data queue.
    [[nodiscard]] std::string description() const;

    // Waits until a copy under way has finished. Not from the "copy" or data queue.
    void waitForCopy() const;

private:
    WavStream(double sampleRate, int channels, int bytesPerSample);

    static std::shared_ptr<WavStream> openWav(std::unique_ptr<WavFileOC> source,
                                              const std::string &path);
    // refused: the file opened but its rate was refused (with a message). Otherwise, when
    // nothing came of it, why says why in a few words for the user.
    static std::shared_ptr<WavStream> importWithSndfile(const std::string &path, bool &refused,
                                                        std::string &why);
    // maxFrames from the frame limit for a file of fileFrames frames (estimated: a decoder's
    // guess); grows the file's ring.
    void applyFrameLimit(std::int64_t fileFrames, bool estimated);
    // The path's size and modification time now, to compare after the copy; all 0 when it
    // cannot be read.
    struct FileStamp
    {
        std::uintmax_t size = 0;
        std::int64_t modified = 0;
        bool operator==(const FileStamp &) const = default;
    };
    static FileStamp stampOf(const std::string &path);
    // Warns when the file at path changed since stamp; then sets changedWhileCopying.
    void checkUnchanged(const std::string &path, const FileStamp &stamp);
    void startCopy(std::unique_ptr<WavFileOC> source, const std::string &path,
                   const FileStamp &stamp);
    // Decodes the rest of file on the "copy" queue, in pieces, into the sound file.
    void startImport(std::shared_ptr<SNDFILE> file, int fileChannels, const std::string &path,
                     const FileStamp &stamp);
    void notifyParentOfGrowth();
    // Writes the frames held, or only those of range ([first, end), clamped to them), to path
    // as save() says; the frame index reached. On the copy queue.
    std::optional<std::int64_t>
    writeTo(const std::string &path,
            std::optional<std::pair<std::int64_t, std::int64_t>> range = std::nullopt);

    mutable std::mutex parentMutex;
    std::weak_ptr<MusicStream> parent;          // guarded by parentMutex
    std::unique_ptr<WavFileOC> wavFile;         // owned; touched on the data queue
    std::optional<VolumeResultOC> volumeResult; // data queue
    int channels;
    int sampleBytes;
};

} // namespace quorval
