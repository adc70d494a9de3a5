#include "streams/WavStream.h"

#include "analysis/Check.h"
#include "options/Messages.h"
#include "options/Parameters.h"
#include "streams/MusicStream.h"
#include "streams/Quorval.h"

#include <QFileInfo>
#include <QUuid>

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <mutex>

namespace quorval {

namespace {

// Frames read from the decoder at a time.
constexpr sf_count_t kImportPieceFrames = 65536;
// Copying a file in takes the data queue for a few copy calls (at most 32 KB each) at a time,
// and for one only when other work waits there, so that the calculation's reads of visible
// segments wait little behind it; the music stream hears of the growth every few calls, which
// is all its refresh needs.
constexpr int kCopyCalls = 8;

double nominalLimit(int bytesPerSample)
{
    return std::ldexp(1.0, 8 * bytesPerSample - 1);
}

// The frame limit of the option for a sound at sampleRate.
double frameLimit(double sampleRate)
{
    return Parameters::shared().maxAudioFileLength.value() * 60.0 * sampleRate;
}

} // namespace

WavStream::WavStream(double sampleRate, int channels, int bytesPerSample)
    : DoubleStream(1.0 / sampleRate, 0.0, -nominalLimit(bytesPerSample),
                   nominalLimit(bytesPerSample)),
      wavFile(std::make_unique<WavFileOC>()), channels(channels), sampleBytes(bytesPerSample)
{
    const std::int64_t frameBytes = std::int64_t{channels} * bytesPerSample;
    QUORVAL_CHECK(frameBytes <= std::numeric_limits<std::int32_t>::max());
    bytesPerFrame = static_cast<std::int32_t>(frameBytes);
}

WavStream::~WavStream()
{
    // A working copy of an opened file, or a recording with nothing unsaved, is only scratch.
    // A recording never saved is left behind, so that nothing recorded is lost.
    if (isSetup && !modified && fileURL != "/") {
        std::error_code ignored;
        std::filesystem::remove(fileURL, ignored);
    }
}

std::shared_ptr<WavStream> WavStream::createForRecording(int channels, int bytesPerSample,
                                                         double sampleRate,
                                                         const std::optional<std::string> &path)
{
    auto stream = std::shared_ptr<WavStream>(new WavStream(sampleRate, channels, bytesPerSample));
    stream->fileTitle = "New File";
    const double limit = frameLimit(sampleRate);
    QUORVAL_CHECK(limit >= 0.0 && limit < 0x1p63);
    stream->maxFrames = static_cast<std::int64_t>(limit);
    const std::int64_t maxBytes = stream->maxFrames * stream->bytesPerFrame;
    QUORVAL_CHECK(maxBytes <= std::numeric_limits<std::int32_t>::max());
    stream->isSetup = stream->wavFile->setupWithSampleRate(sampleRate, channels, bytesPerSample,
                                                           static_cast<int>(maxBytes), path);
    if (!stream->isSetup) {
        showMessage("", "Can't create .wav file -- internal error");
        return nullptr;
    }
    stream->fileURL = stream->wavFile->getFilePath();
    return stream;
}

std::shared_ptr<WavStream> WavStream::createFromFile(const std::string &path)
{
    auto source = std::make_unique<WavFileOC>();
    std::shared_ptr<WavStream> stream;
    if (source->setupFromPath(path) && source->isVerified())
        stream = openWav(std::move(source));
    else
        stream = importWithSndfile(path);
    if (!stream) {
        showMessage("", "Can't read sound file");
        return nullptr;
    }
    stream->fileTitle = QFileInfo(QString::fromStdString(path)).fileName().toStdString();
    return stream;
}

void WavStream::applyFrameLimit(std::int64_t fileFrames)
{
    const double limit = frameLimit(sampleRate());
    QUORVAL_CHECK(limit >= 0.0 && limit <= std::numeric_limits<std::int32_t>::max());
    // The ring's byte count must fit the sound file's 32-bit sizes: a limit beyond that is
    // lowered to what fits rather than refused.
    const std::int64_t limitFrames = std::min<std::int64_t>(
        static_cast<std::int64_t>(limit), std::numeric_limits<std::int32_t>::max() / bytesPerFrame);
    if (fileFrames <= limitFrames) {
        maxFrames = limitFrames;
        wavFile->setMaxByteLength(static_cast<int>(limitFrames * bytesPerFrame));
    } else {
        maxFrames = fileFrames; // kept whole; recording into it wraps
    }
}

std::shared_ptr<WavStream> WavStream::openWav(std::unique_ptr<WavFileOC> source)
{
    auto stream = std::shared_ptr<WavStream>(new WavStream(
        source->getSampleRate(), source->getNChannels(), source->getBytesPerSample()));
    if (!stream->wavFile->setupFromWavFile(*source, std::nullopt) ||
        !stream->wavFile->copyHeadersFromWavFile(*source))
        return nullptr;
    stream->fileURL = stream->wavFile->getFilePath();
    const std::int64_t fileFrames =
        stream->bytesPerFrame == 0 ? 0 : source->getFileDataLength() / stream->bytesPerFrame;
    stream->applyFrameLimit(fileFrames);
    stream->isSetup = true;
    stream->startCopy(std::move(source));
    return stream;
}

void WavStream::startCopy(std::unique_ptr<WavFileOC> source)
{
    copying = true;
    std::shared_ptr<WavFileOC> from(std::move(source));
    auto self = std::static_pointer_cast<WavStream>(shared_from_this());
    Quorval::copyQueue().async([self, from] {
        int location = 0;
        int callsSinceNotice = 0;
        bool more = true;
        SerialQueue &data = Quorval::dataQueue();
        while (more && !Quorval::isShuttingDown()) {
            // Up to the next growth notice, or one call when other work waits.
            more = data.sync([&] {
                do {
                    const int n = self->wavFile->copyDataFromWavFile(*from, location, location,
                                                                     WavFileOC::kMaxCopyBytes);
                    if (n <= 0)
                        return false;
                    location += n;
                    self->maxIndex_D = location / self->bytesPerFrame;
                } while (++callsSinceNotice < kCopyCalls && !data.hasWaitingItems());
                return true;
            });
            if (more && callsSinceNotice >= kCopyCalls) {
                callsSinceNotice = 0;
                self->notifyParentOfGrowth();
            }
        }
        // The range reaches the end before the copy counts as over, so that nobody waiting for
        // the end finds "nothing left" in a range that is still short; then the rest, which
        // waits while a copy is under way.
        self->notifyParentOfGrowth();
        self->copying = false;
        self->notifyParentOfGrowth();
    });
}

void WavStream::setParent(const std::shared_ptr<MusicStream> &music)
{
    std::lock_guard lock(parentMutex);
    parent = music;
}

std::shared_ptr<MusicStream> WavStream::parentStream() const
{
    std::lock_guard lock(parentMutex);
    return parent.lock();
}

void WavStream::notifyParentOfGrowth()
{
    if (auto music = parentStream())
        music->soundGrew();
}

std::shared_ptr<WavStream> WavStream::importWithSndfile(const std::string &path)
{
    SF_INFO info{};
    SNDFILE *opened = sf_open(path.c_str(), SFM_READ, &info);
    if (!opened)
        return nullptr;
    std::shared_ptr<SNDFILE> file(opened, sf_close);
    if (info.samplerate <= 0 || info.channels <= 0)
        return nullptr;
    auto stream = std::shared_ptr<WavStream>(new WavStream(info.samplerate, 1, 2));
    // The decoder's length is only an estimate for some formats (MP3): a sound beyond the frame
    // limit gets room for an eighth more than the estimate, and the import ends with the ring.
    std::int64_t frames = std::max<std::int64_t>(info.frames, 0);
    if (frames > static_cast<std::int64_t>(frameLimit(info.samplerate)))
        frames = std::min<std::int64_t>(frames + frames / 8,
                                        std::numeric_limits<std::int32_t>::max() / 2);
    stream->applyFrameLimit(frames);
    stream->isSetup = stream->wavFile->setupWithSampleRate(
        info.samplerate, 1, 2, static_cast<int>(stream->maxFrames * stream->bytesPerFrame));
    if (!stream->isSetup)
        return nullptr;
    stream->fileURL = stream->wavFile->getFilePath();
    stream->startImport(std::move(file), info.channels);
    return stream;
}

void WavStream::startImport(std::shared_ptr<SNDFILE> file, int fileChannels)
{
    copying = true;
    auto self = std::static_pointer_cast<WavStream>(shared_from_this());
    Quorval::copyQueue().async([self, file, fileChannels] {
        std::vector<float> frames(static_cast<std::size_t>(kImportPieceFrames * fileChannels));
        std::vector<float> mono(static_cast<std::size_t>(kImportPieceFrames));
        std::int64_t held = 0;
        bool written = true;
        while (written && !Quorval::isShuttingDown()) {
            const sf_count_t want =
                std::min<sf_count_t>(kImportPieceFrames, self->maxFrames - held);
            const sf_count_t got = want > 0 ? sf_readf_float(file.get(), frames.data(), want) : 0;
            if (got <= 0)
                break;
            // Always mono: the channels' mean.
            for (sf_count_t f = 0; f < got; ++f) {
                float sum = 0.0f;
                for (int c = 0; c < fileChannels; ++c)
                    sum += frames[static_cast<std::size_t>(f * fileChannels + c)];
                mono[static_cast<std::size_t>(f)] = sum / static_cast<float>(fileChannels);
            }
            written = Quorval::dataQueue().sync([&] {
                if (!self->wavFile->putFloats(mono.data(), static_cast<int>(got),
                                              self->byteLocOf(held)))
                    return false;
                held += got;
                self->maxIndex_D = held;
                return true;
            });
            self->notifyParentOfGrowth();
        }
        Quorval::dataQueue().sync([&] {
            (void)self->wavFile->finalizeWithByteSize(static_cast<int>(held * self->bytesPerFrame));
        });
        self->copying = false;
        self->notifyParentOfGrowth();
    });
}

int WavStream::byteLocOf(std::int64_t frame) const
{
    QUORVAL_CHECK(maxFrames > 0 && frame >= 0);
    return static_cast<int>((frame % maxFrames) * bytesPerFrame);
}

VolumeResultOC WavStream::volume_D(std::int64_t firstFrame, std::int64_t nFrames)
{
    if (!volumeResult)
        volumeResult.emplace();
    QUORVAL_CHECK(nFrames >= 0 && nFrames <= std::numeric_limits<std::int32_t>::max());
    wavFile->getVolume(byteLocOf(firstFrame), static_cast<int>(nFrames), *volumeResult);
    return *volumeResult;
}

VolumeResultOC WavStream::volume(std::int64_t firstFrame, std::int64_t nFrames)
{
    return Quorval::dataQueue().sync([&] { return volume_D(firstFrame, nFrames); });
}

bool WavStream::appendSamples_D(const std::int16_t *samples, std::int64_t nFrames)
{
    QUORVAL_CHECK(sampleBytes == 2 && nFrames >= 0);
    const std::int64_t count = nFrames * channels;
    QUORVAL_CHECK(count <= std::numeric_limits<std::int32_t>::max() / 2);
    if (!wavFile->putSamples(samples, static_cast<int>(count), byteLocOf(maxIndex_D)))
        return false;
    maxIndex_D += nFrames;
    minIndex_D = std::max<std::int64_t>(0, maxIndex_D - maxFrames);
    modified = true;
    const std::int64_t held = std::min(maxIndex_D, maxFrames);
    return wavFile->finalizeWithByteSize(static_cast<int>(held * bytesPerFrame));
}

bool WavStream::appendSamples(std::span<const std::int16_t> samples)
{
    const auto frames = static_cast<std::int64_t>(samples.size()) / channels;
    const bool written =
        Quorval::dataQueue().sync([&] { return appendSamples_D(samples.data(), frames); });
    // Told after the write, so that the parent's read of the extent sees it.
    if (written)
        notifyParentOfGrowth();
    return written;
}

std::optional<std::int64_t> WavStream::writeTo(const std::string &path)
{
    const std::filesystem::path target(path);
    // Appended piece by piece: GCC 12 warns falsely about operator+ on a temporary here.
    std::string partName = ".";
    partName += target.filename().string();
    partName += '.';
    partName += QUuid::createUuid().toString(QUuid::WithoutBraces).toStdString();
    partName += ".part";
    const std::string partPath = (target.parent_path() / partName).string();
    const std::optional<std::int64_t> written =
        Quorval::dataQueue().sync([&]() -> std::optional<std::int64_t> {
            WavFileOC out;
            if (!out.setupFromWavFile(*wavFile, partPath) || !out.copyHeadersFromWavFile(*wavFile))
                return std::nullopt;
            const std::int64_t first = minIndex_D;
            const std::int64_t frames = maxIndex_D - minIndex_D;
            const std::int64_t totalBytes = frames * bytesPerFrame;
            QUORVAL_CHECK(totalBytes <= std::numeric_limits<std::int32_t>::max());
            // Ring order: from the oldest frame to the end of the ring, then from its start.
            std::int64_t from = frames > 0 ? byteLocOf(first) : 0;
            std::int64_t to = 0;
            while (to < totalBytes) {
                const std::int64_t ringEnd = maxFrames * bytesPerFrame;
                const std::int64_t want = std::min(totalBytes - to, ringEnd - from);
                const int n = out.copyDataFromWavFile(*wavFile, static_cast<int>(from),
                                                      static_cast<int>(to), static_cast<int>(want));
                if (n <= 0)
                    return std::nullopt;
                to += n;
                from += n;
                if (from >= ringEnd)
                    from = 0;
            }
            // Both size fields are rewritten even when the copied header already names this
            // length: its RIFF size may count chunks after the data that were not copied.
            if (!out.finalizeWithByteSize(static_cast<int>(totalBytes) + 1) ||
                !out.finalizeWithByteSize(static_cast<int>(totalBytes)))
                return std::nullopt;
            return maxIndex_D;
        });
    std::error_code error;
    if (written)
        std::filesystem::rename(partPath, target, error);
    if (!written || error) {
        std::filesystem::remove(partPath, error);
        return std::nullopt;
    }
    return written;
}

bool WavStream::save()
{
    if (!saveURL)
        return false;
    const std::string path = *saveURL;
    auto self = std::static_pointer_cast<WavStream>(shared_from_this());
    // On the copy queue, so that a copy still under way finishes first.
    const bool saved = Quorval::copyQueue().sync([&] {
        const std::optional<std::int64_t> reached = self->writeTo(path);
        if (reached)
            self->savedMaxFileIndex = *reached;
        return reached.has_value();
    });
    if (!saved) {
        showMessage("", "Can't save sound file");
        return false;
    }
    modified = false;
    return true;
}

bool WavStream::saveAs(const std::string &path)
{
    const auto previous = saveURL;
    saveURL = path;
    if (!save()) {
        saveURL = previous;
        return false;
    }
    fileTitle = QFileInfo(QString::fromStdString(path)).fileName().toStdString();
    return true;
}

void WavStream::waitForCopy() const
{
    Quorval::copyQueue().sync([] {});
}

std::string WavStream::description() const
{
    const auto [minIndex, maxIndex] = Quorval::dataQueue().sync(
        [this] { return std::make_pair(minimumIndex_D(), maximumIndex_D()); });
    const double framesPerMinute = sampleRate() * 60.0;
    char text[256];
    std::snprintf(text, sizeof text,
                  "Number of channels %d\nBytes per sample %d\nFrame rate %.0f\nLength %.2f "
                  "minutes\nMax length %.2f minutes",
                  channels, sampleBytes, sampleRate(),
                  static_cast<double>(maxIndex - minIndex) / framesPerMinute,
                  static_cast<double>(maxFrames) / framesPerMinute);
    return text;
}

} // namespace quorval
