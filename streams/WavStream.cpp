#include "streams/WavStream.h"

#include "analysis/Check.h"
#include "analysis/RegularFile.h"
#include "options/Messages.h"
#include "options/Parameters.h"
#include "options/SaveTarget.h"
#include "streams/MusicStream.h"
#include "streams/Quorval.h"
#include "streams/TimeText.h"
#include "streams/Warnings.h"
#include "streams/WorkingFiles.h"

#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <limits>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

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

// The frame limit of the option for a sound at sampleRate with frames of frameBytes bytes. The
// ring's byte count must fit the sound file's 32-bit sizes: a limit beyond that is lowered to
// what fits, with a warning, before anything is allocated.
std::int64_t frameLimit(double sampleRate, int frameBytes)
{
    const auto &option = Parameters::shared().maxAudioFileLength;
    const double minutes = option.value();
    const double wanted = minutes * 60.0 * sampleRate;
    const std::int64_t fits = std::numeric_limits<std::int32_t>::max() / std::max(frameBytes, 1);
    if (wanted >= 0.0 && wanted <= static_cast<double>(fits))
        return static_cast<std::int64_t>(wanted);
    showWarning(QStringLiteral("\"%1\" %2 is more than a WAV file holds at %3 Hz; %4 minutes are "
                               "used instead")
                    .arg(option.name)
                    .arg(minutes)
                    .arg(sampleRate, 0, 'f', 0)
                    .arg(std::floor(static_cast<double>(fits) / sampleRate / 60.0 * 100.0) / 100.0,
                         0, 'f', 2));
    return fits;
}

// A rate the analysis cannot segment is refused with a message naming it.
bool rateRefused(double sampleRate)
{
    if (sampleRate >= WavStream::kMinSampleRate)
        return false;
    showMessage("", QStringLiteral("The sample rate of %1 Hz is too low to analyse (the least is "
                                   "%2 Hz)")
                        .arg(sampleRate)
                        .arg(WavStream::kMinSampleRate));
    return true;
}

// The data bytes the "data" chunk of a RIFF WAVE file announces and the bytes the file holds
// after the chunk's header; nothing for other files, or when no data chunk is found.
struct DataExtent
{
    std::uint64_t announced = 0;
    std::uint64_t present = 0;
};
std::optional<DataExtent> riffDataExtent(const std::string &path)
{
    std::string why;
    const int fd = openRegularFile(path, O_RDONLY, why);
    if (fd < 0)
        return std::nullopt;
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(::fdopen(fd, "rb"), std::fclose);
    if (!file) {
        ::close(fd);
        return std::nullopt;
    }
    struct stat status
    {
    };
    if (::fstat(fd, &status) != 0)
        return std::nullopt;
    const auto fileSize = static_cast<std::uint64_t>(status.st_size);
    const auto word = [](const unsigned char *b) {
        return std::uint32_t{b[0]} | std::uint32_t{b[1]} << 8 | std::uint32_t{b[2]} << 16 |
               std::uint32_t{b[3]} << 24;
    };
    unsigned char head[12];
    if (std::fread(head, 1, 12, file.get()) != 12 || word(head) != WavFileOC::kRiff ||
        word(head + 8) != WavFileOC::kWave)
        return std::nullopt;
    // Chunks are word-aligned; a few hundred are plenty before the data in any real file.
    std::uint64_t offset = 12;
    for (int chunks = 0; chunks < 512 && offset + 8 <= fileSize; ++chunks) {
        unsigned char chunk[8];
        if (::fseeko(file.get(), static_cast<off_t>(offset), SEEK_SET) != 0 ||
            std::fread(chunk, 1, 8, file.get()) != 8)
            return std::nullopt;
        const std::uint32_t size = word(chunk + 4);
        if (word(chunk) == WavFileOC::kData)
            return DataExtent{size, fileSize - (offset + 8)};
        offset += 8 + std::uint64_t{size} + (size & 1u);
    }
    return std::nullopt;
}

// Warns when the file's header promises more sound than it holds; seconds is what is there.
void warnIfShort(const std::string &path, double seconds)
{
    const std::optional<DataExtent> extent = riffDataExtent(path);
    if (!extent || extent->announced <= extent->present)
        return;
    showWarning(QStringLiteral("the file ends before the sound its header announces (%1 of %2 "
                               "bytes); reading the %3 seconds that are there")
                    .arg(extent->present)
                    .arg(extent->announced)
                    .arg(seconds, 0, 'f', 2));
}

// Writes the bytes of the file at from into to, front to back, without replacing to: it may be
// a FIFO or a device, which take only writes in order.
std::error_code copyInto(const std::string &from, const std::string &to)
{
    std::ifstream in(from, std::ios::binary);
    std::ofstream out(to, std::ios::binary);
    if (in && out)
        out << in.rdbuf();
    out.flush();
    if (!in || !out)
        return std::make_error_code(std::errc::io_error);
    return {};
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
    // The last reference can drop on the calculation's path: closing and removing a long copy
    // there would delay the next sound's first results.
    // A take with nothing in it is nothing to recover either.
    if ((!isSetup || !modified || maxIndex_D == 0) && fileURL != "/")
        WorkingFiles::removeInBackground(
            fileURL,
            [file = std::shared_ptr<WavFileOC>(std::move(wavFile))]() mutable { file.reset(); });
}

std::shared_ptr<WavStream> WavStream::createForRecording(int channels, int bytesPerSample,
                                                         double sampleRate,
                                                         const std::optional<std::string> &path)
{
    auto stream = std::shared_ptr<WavStream>(new WavStream(sampleRate, channels, bytesPerSample));
    stream->fileTitle = "New File";
    stream->maxFrames = frameLimit(sampleRate, stream->bytesPerFrame);
    const std::int64_t maxBytes = stream->maxFrames * stream->bytesPerFrame;
    // Named as a recording's, so that it is never taken for scratch and can be recovered. A
    // file the user named is the user's to share; a working file is not.
    const std::string filePath =
        path ? *path : WorkingFiles::newPath(WorkingFiles::Kind::recording);
    stream->isSetup = stream->wavFile->setupWithSampleRate(
        sampleRate, channels, bytesPerSample, static_cast<int>(maxBytes), filePath,
        path ? WavFileOC::Access::asUmaskAllows : WavFileOC::Access::ownerOnly);
    if (!stream->isSetup) {
        // What a failed creation left (an empty file on a full disk) is no take to offer.
        if (!path)
            (void)::unlink(filePath.c_str());
        const std::string &why = stream->wavFile->failureReason();
        const std::string folder = std::filesystem::path(filePath).parent_path().string();
        showMessage("", QStringLiteral("Can't create .wav file -- internal error") +
                            (why.empty() ? QString()
                                         : QStringLiteral(": %1, in the folder %2")
                                               .arg(QString::fromStdString(why),
                                                    QFile::decodeName(folder.c_str()))));
        return nullptr;
    }
    stream->fileURL = stream->wavFile->getFilePath();
    stream->sourceFormat = {channels, bytesPerSample, sampleRate, 0, false};
    return stream;
}

std::shared_ptr<WavStream> WavStream::createFromFile(const std::string &path)
{
    auto source = std::make_unique<WavFileOC>();
    std::shared_ptr<WavStream> stream;
    const bool opened = source->setupFromPath(path);
    // The message names the file and says why; its text is the same whatever the reason.
    const auto unreadable = [&path](const std::string &why) {
        showMessage("", QStringLiteral("Can't read sound file"),
                    quotedForMessage(QFileInfo(QFile::decodeName(path.c_str())).fileName()) +
                        QStringLiteral(": ") + QString::fromStdString(why));
    };
    // No decoder reads what cannot be opened, or what is no regular file.
    if (!opened && !source->failureReason().empty()) {
        unreadable(source->failureReason());
        return nullptr;
    }
    if (opened && source->isVerified()) {
        if (rateRefused(source->getSampleRate()))
            return nullptr;
        stream = openWav(std::move(source), path);
    } else {
        bool refused = false;
        std::string why;
        stream = importWithSndfile(path, refused, why);
        if (refused)
            return nullptr;
        if (!stream) {
            unreadable(why.empty() ? std::string("not a sound file") : why);
            return nullptr;
        }
    }
    if (!stream) {
        unreadable("its working copy could not be made");
        return nullptr;
    }
    stream->fileTitle = QFileInfo(QString::fromStdString(path)).fileName().toStdString();
    return stream;
}

void WavStream::applyFrameLimit(std::int64_t fileFrames, bool estimated)
{
    const std::int64_t limitFrames = frameLimit(sampleRate(), bytesPerFrame);
    // No working file holds more than a WAV file can, whatever a damaged header claims.
    const std::int64_t mostFrames = std::numeric_limits<std::int32_t>::max() / bytesPerFrame;
    fileFrames = std::clamp<std::int64_t>(fileFrames, 0, mostFrames);
    // The decoder's length is only an estimate for some formats (MP3): a sound beyond the frame
    // limit gets room for an eighth more than the estimate, and the import ends with the ring.
    if (estimated && fileFrames > limitFrames)
        fileFrames = std::min(fileFrames + fileFrames / 8, mostFrames);
    if (fileFrames <= limitFrames) {
        maxFrames = limitFrames;
        wavFile->setMaxByteLength(static_cast<int>(limitFrames * bytesPerFrame));
    } else {
        maxFrames = fileFrames; // kept whole; recording into it wraps
    }
}

std::shared_ptr<WavStream> WavStream::openWav(std::unique_ptr<WavFileOC> source,
                                              const std::string &path)
{
    const FileStamp stamp = stampOf(path);
    auto stream = std::shared_ptr<WavStream>(new WavStream(
        source->getSampleRate(), source->getNChannels(), source->getBytesPerSample()));
    const std::string workingPath = WorkingFiles::newPath(WorkingFiles::Kind::copy);
    WorkingFiles::track(workingPath);
    stream->fileURL = workingPath;
    if (!stream->wavFile->setupFromWavFile(*source, workingPath) ||
        !stream->wavFile->copyHeadersFromWavFile(*source)) {
        std::error_code ignored;
        std::filesystem::remove(workingPath, ignored);
        WorkingFiles::forget(workingPath);
        return nullptr;
    }
    const std::int64_t announcedFrames =
        stream->bytesPerFrame == 0 ? 0 : source->getFileDataLength() / stream->bytesPerFrame;
    // Frames the file really holds: a header may promise more.
    std::error_code error;
    const auto fileBytes = static_cast<std::int64_t>(std::filesystem::file_size(path, error));
    const std::int64_t presentFrames =
        error || stream->bytesPerFrame == 0
            ? announcedFrames
            : std::clamp<std::int64_t>((fileBytes - source->getHeaderLength()) /
                                           stream->bytesPerFrame,
                                       0, announcedFrames);
    warnIfShort(path, static_cast<double>(presentFrames) / source->getSampleRate());
    stream->sourceFormat = {source->getNChannels(), source->getBytesPerSample(),
                            source->getSampleRate(), presentFrames, false};
    stream->applyFrameLimit(announcedFrames, false);
    stream->isSetup = true;
    stream->openedFromFile = true;
    stream->startCopy(std::move(source), path, stamp);
    return stream;
}

WavStream::FileStamp WavStream::stampOf(const std::string &path)
{
    struct stat status
    {
    };
    if (::stat(path.c_str(), &status) != 0)
        return {};
    return {static_cast<std::uintmax_t>(status.st_size),
            std::int64_t{status.st_mtim.tv_sec} * 1000000000 + status.st_mtim.tv_nsec};
}

void WavStream::checkUnchanged(const std::string &path, const FileStamp &stamp)
{
    // A file removed meanwhile was read whole through the handle that stayed open.
    const FileStamp now = stampOf(path);
    if (now == stamp || now == FileStamp{})
        return;
    changedWhileCopying = true;
    showWarning(QStringLiteral("%1 changed while it was read: its analysis may mix the old and "
                               "the new sound")
                    .arg(QFileInfo(QString::fromStdString(path)).fileName()));
}

void WavStream::startCopy(std::unique_ptr<WavFileOC> source, const std::string &path,
                          const FileStamp &stamp)
{
    copying = true;
    std::shared_ptr<WavFileOC> from(std::move(source));
    auto self = std::static_pointer_cast<WavStream>(shared_from_this());
    Quorval::copyQueue().async([self, from, path, stamp] {
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
        self->checkUnchanged(path, stamp);
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

namespace {

// Bytes per sample of a decoder's subformat; 0 for a compressed one.
int bytesPerSampleOf(int format)
{
    switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
        return 1;
    case SF_FORMAT_PCM_16:
        return 2;
    case SF_FORMAT_PCM_24:
        return 3;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_FLOAT:
        return 4;
    case SF_FORMAT_DOUBLE:
        return 8;
    default:
        return 0;
    }
}

// Why no decoder reads a regular file that opened, from its first bytes (got of them) and the
// decoder's own words.
std::string whyNotDecoded(const char (&head)[12], ssize_t got, const char *decoderSays)
{
    if (got <= 0)
        return "the file is empty";
    const std::string decoder =
        decoderSays && *decoderSays ? std::string(" (") + decoderSays + ")" : std::string();
    if (got == 12 && std::memcmp(head, "RIFF", 4) == 0 && std::memcmp(head + 8, "WAVE", 4) == 0)
        return "a WAV file cut short, damaged or in an unsupported format" + decoder;
    return "not a sound file, or in an unsupported format" + decoder;
}

} // namespace

std::shared_ptr<WavStream> WavStream::importWithSndfile(const std::string &path, bool &refused,
                                                        std::string &why)
{
    const FileStamp stamp = stampOf(path);
    SF_INFO info{};
    const int fd = openRegularFile(path, O_RDONLY, why);
    if (fd < 0)
        return nullptr;
    // Read before the decoder takes the descriptor (and closes it when it fails).
    char head[12] = {};
    const ssize_t got = ::pread(fd, head, sizeof head, 0);
    SNDFILE *opened = sf_open_fd(fd, SFM_READ, &info, SF_TRUE);
    if (!opened) {
        why = whyNotDecoded(head, got, sf_strerror(nullptr));
        return nullptr;
    }
    std::shared_ptr<SNDFILE> file(opened, sf_close);
    if (info.channels <= 0) {
        why = whyNotDecoded(head, got, "no channels");
        return nullptr;
    }
    refused = rateRefused(info.samplerate);
    if (refused)
        return nullptr;
    auto stream = std::shared_ptr<WavStream>(new WavStream(info.samplerate, 1, 2));
    warnIfShort(path, static_cast<double>(std::max<sf_count_t>(info.frames, 0)) / info.samplerate);
    stream->sourceFormat = {info.channels, bytesPerSampleOf(info.format),
                            static_cast<double>(info.samplerate),
                            std::max<std::int64_t>(info.frames, 0), true};
    stream->applyFrameLimit(std::max<std::int64_t>(info.frames, 0), true);
    const std::string workingPath = WorkingFiles::newPath(WorkingFiles::Kind::copy);
    WorkingFiles::track(workingPath);
    stream->fileURL = workingPath;
    stream->isSetup = stream->wavFile->setupWithSampleRate(
        info.samplerate, 1, 2, static_cast<int>(stream->maxFrames * stream->bytesPerFrame),
        workingPath);
    if (!stream->isSetup) {
        why = "no room for its working copy: " + stream->wavFile->failureReason();
        return nullptr;
    }
    stream->openedFromFile = true;
    stream->startImport(std::move(file), info.channels, path, stamp);
    return stream;
}

void WavStream::startImport(std::shared_ptr<SNDFILE> file, int fileChannels,
                            const std::string &path, const FileStamp &stamp)
{
    copying = true;
    auto self = std::static_pointer_cast<WavStream>(shared_from_this());
    Quorval::copyQueue().async([self, file, fileChannels, path, stamp] {
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
        self->checkUnchanged(path, stamp);
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

std::optional<std::int64_t>
WavStream::writeTo(const std::string &path,
                   std::optional<std::pair<std::int64_t, std::int64_t>> range)
{
    const SaveTarget kind = saveTargetOf(path);
    if (kind == SaveTarget::folder)
        return std::nullopt;
    std::error_code error;
    std::filesystem::path target(path);
    // A link is kept: the file it points to is the one replaced (a dangling one is replaced).
    if (std::filesystem::is_symlink(std::filesystem::symlink_status(target, error))) {
        std::filesystem::path resolved = std::filesystem::canonical(target, error);
        if (!error)
            target = std::move(resolved);
    }
    error.clear();
    // Appended piece by piece: GCC 12 warns falsely about operator+ on a temporary here.
    std::string partName = ".";
    partName += target.filename().string();
    partName += '.';
    partName += QUuid::createUuid().toString(QUuid::WithoutBraces).toStdString();
    partName += ".part";
    // Beside a FIFO or a device (in /dev, say) is no place for it: the temporary folder is.
    const std::filesystem::path partFolder = kind == SaveTarget::inPlace
                                                 ? std::filesystem::temp_directory_path(error)
                                                 : target.parent_path();
    if (error)
        return std::nullopt;
    const std::string partPath = (partFolder / partName).string();
    // A file replaced keeps who may read it; a new one gets what the umask allows. The part file
    // is the owner's alone until then.
    const bool replacing = kind == SaveTarget::replace && std::filesystem::exists(target, error);
    const auto access = kind == SaveTarget::replace && !replacing ? WavFileOC::Access::asUmaskAllows
                                                                  : WavFileOC::Access::ownerOnly;
    const std::optional<std::int64_t> written =
        Quorval::dataQueue().sync([&]() -> std::optional<std::int64_t> {
            WavFileOC out;
            if (!out.setupFromWavFile(*wavFile, partPath, access) ||
                !out.copyHeadersFromWavFile(*wavFile))
                return std::nullopt;
            const std::int64_t first =
                range ? std::clamp(range->first, minIndex_D, maxIndex_D) : minIndex_D;
            const std::int64_t end =
                range ? std::clamp(range->second, first, maxIndex_D) : maxIndex_D;
            const std::int64_t frames = end - first;
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
            if (replacing && !out.copyPermissionsFrom(target.string()))
                return std::nullopt;
            return end;
        });
    if (written && kind == SaveTarget::inPlace)
        error = copyInto(partPath, target.string());
    else if (written)
        std::filesystem::rename(partPath, target, error);
    if (kind == SaveTarget::inPlace || !written || error) {
        std::error_code ignored;
        std::filesystem::remove(partPath, ignored);
    }
    if (!written || error)
        return std::nullopt;
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

bool WavStream::exportFrames(const std::string &path, std::int64_t first, std::int64_t end)
{
    auto self = std::static_pointer_cast<WavStream>(shared_from_this());
    // On the copy queue, so that a copy still under way finishes first.
    const bool written = Quorval::copyQueue().sync(
        [&] { return self->writeTo(path, std::make_pair(first, end)).has_value(); });
    if (!written)
        showMessage("", "Can't save sound file");
    return written;
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
    // An opened file is described as it is on disk, not as its working copy.
    const bool converted = sourceFormat.converted;
    const double frames = static_cast<double>(maxIndex - minIndex);
    char text[340];
    std::snprintf(text, sizeof text,
                  "Number of channels %d\nBytes per sample %d\nFrame rate %.0f\nLength %.2f "
                  "minutes (%s)\nMax length %.2f minutes%s",
                  converted ? sourceFormat.channels : channels,
                  converted ? sourceFormat.bytesPerSample : sampleBytes, sampleRate(),
                  frames / framesPerMinute, minutesAndSeconds(frames / sampleRate()).c_str(),
                  static_cast<double>(maxFrames) / framesPerMinute,
                  converted ? "\nConverted to 1 channel, 2 bytes per sample for analysis" : "");
    return text;
}

} // namespace quorval
