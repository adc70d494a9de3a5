#include "streams/WavStream.h"

#include "analysis/tests/support/TestSignals.h"
#include "options/Parameters.h"
#include "streams/Quorval.h"
#include "streams/WorkingFiles.h"
#include "streams/tests/SoundFiles.h"
#include "streams/tests/Wait.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <future>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace quorval {
namespace {

using test::MessageCatcher;

// Sets "Max audio file length (minutes)" for one test.
class MaxLength
{
public:
    explicit MaxLength(double minutes) { EXPECT_TRUE(option().setValue(minutes)); }
    ~MaxLength() { option().resetToDefault(); }
    MaxLength(const MaxLength &) = delete;
    MaxLength &operator=(const MaxLength &) = delete;

private:
    static DoubleParameter &option() { return Parameters::shared().maxAudioFileLength; }
};

std::int64_t limitFrames(double sampleRate)
{
    return static_cast<std::int64_t>(Parameters::shared().maxAudioFileLength.value() * 60.0 *
                                     sampleRate);
}

TEST(WavStream, openedWavIsCopiedInTheBackgroundAndTheUserFileOnlyRead)
{
    const int frames = 3 * 44100;
    const auto left = testsignals::sine(440.0, 10000.0, frames);
    testsignals::TempWav file(left, testsignals::silence(frames), 2);
    ASSERT_TRUE(file.ok());
    const std::string before = test::fileBytes(file.path());

    auto stream = WavStream::createFromFile(file.path());
    ASSERT_NE(stream, nullptr);
    stream->waitForCopy();
    EXPECT_FALSE(stream->copying);
    EXPECT_EQ(stream->bytesPerFrame, 4);
    EXPECT_EQ(stream->maxFrames, limitFrames(44100.0));
    EXPECT_EQ(stream->minNominalY, -32768.0);
    EXPECT_EQ(stream->maxNominalY, 32768.0);
    EXPECT_EQ(stream->minimumIndex(), 0);
    EXPECT_EQ(stream->maximumIndex(), frames);
    EXPECT_NE(stream->fileURL, file.path());
    EXPECT_EQ(stream->fileTitle, std::filesystem::path(file.path()).filename().string());
    EXPECT_FALSE(stream->modified);

    // Every channel sample counts: a sine of 10000 on one channel, silence on the other.
    const VolumeResultOC volume = stream->volume(44100, 44100);
    EXPECT_NEAR(volume.getRMS(), 10000.0 / std::sqrt(2.0) / std::sqrt(2.0), 5.0);
    EXPECT_NEAR(volume.getMax(), 10000.0, 1.0);

    const std::string text = stream->description();
    EXPECT_NE(text.find("Number of channels 2\nBytes per sample 2\nFrame rate 44100\n"),
              std::string::npos);
    EXPECT_NE(text.find("Length 0.05 minutes"), std::string::npos);
    EXPECT_EQ(test::fileBytes(file.path()), before);
}

TEST(WavStream, limitsFollowTheOptionAndLongerFilesAreKeptWhole)
{
    MaxLength oneMinute(1.0);
    const int rate = 8000;
    const int longFrames = 61 * rate;
    testsignals::TempWav longFile(testsignals::sine(300.0, 1000.0, longFrames, rate), {}, 2, rate);
    ASSERT_TRUE(longFile.ok());
    auto stream = WavStream::createFromFile(longFile.path());
    ASSERT_NE(stream, nullptr);
    stream->waitForCopy();
    EXPECT_EQ(stream->maxFrames, longFrames);
    EXPECT_EQ(stream->maximumIndex(), longFrames);

    testsignals::TempWav eightBit(testsignals::sine(300.0, 100.0, rate, rate), {}, 1, rate);
    ASSERT_TRUE(eightBit.ok());
    auto small = WavStream::createFromFile(eightBit.path());
    ASSERT_NE(small, nullptr);
    EXPECT_EQ(small->maxFrames, 60 * rate);
    EXPECT_EQ(small->minNominalY, -128.0);
    EXPECT_EQ(small->maxNominalY, 128.0);
}

TEST(WavStream, recordingWrapsInItsRingAndSavesTheNewestFramesInOrder)
{
    MaxLength oneMinute(1.0);
    const int rate = 8000;
    auto stream = WavStream::createForRecording(1, 2, rate);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(stream->fileTitle, "New File");
    EXPECT_FALSE(stream->modified);
    EXPECT_FALSE(stream->saveURL.has_value());
    EXPECT_EQ(stream->maxFrames, 60 * rate);

    // 70 s of a ramp that tells every frame apart, in buffers from another thread.
    const std::int64_t total = 70 * rate;
    auto sampleOf = [](std::int64_t frame) { return static_cast<std::int16_t>(frame % 30011); };
    std::thread recorder([&] {
        std::vector<std::int16_t> buffer(1000); // reused, as the recorder reuses its own
        for (std::int64_t start = 0; start < total; start += 1000) {
            for (std::int64_t i = 0; i < 1000; ++i)
                buffer[static_cast<std::size_t>(i)] = sampleOf(start + i);
            EXPECT_TRUE(stream->appendSamples(buffer));
        }
    });
    recorder.join();
    EXPECT_EQ(stream->maximumIndex(), total);
    EXPECT_EQ(stream->minimumIndex(), total - 60 * rate);
    EXPECT_TRUE(stream->modified);

    QTemporaryDir dir;
    const std::string target = QDir(dir.path()).filePath("take.wav").toStdString();
    ASSERT_TRUE(stream->saveAs(target));
    EXPECT_FALSE(stream->modified);
    EXPECT_EQ(stream->savedMaxFileIndex, total);
    EXPECT_EQ(stream->fileTitle, "take.wav");

    auto saved = WavStream::createFromFile(target);
    ASSERT_NE(saved, nullptr);
    saved->waitForCopy();
    ASSERT_EQ(saved->maximumIndex(), 60 * rate);
    const std::int64_t first = total - 60 * rate;
    for (std::int64_t frame :
         {std::int64_t{0}, std::int64_t{1}, std::int64_t{123457}, std::int64_t{60 * rate - 1}}) {
        const VolumeResultOC one = saved->volume(frame, 1);
        EXPECT_EQ(one.getMax(), sampleOf(first + frame)) << frame;
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path().toStdString()),
                            std::filesystem::directory_iterator()),
              1);
}

TEST(WavStream, failedSaveLeavesTheTargetAsItWas)
{
    const int frames = 44100;
    testsignals::TempWav file(testsignals::sine(440.0, 8000.0, frames), {}, 2);
    ASSERT_TRUE(file.ok());
    auto stream = WavStream::createFromFile(file.path());
    ASSERT_NE(stream, nullptr);
    stream->waitForCopy();

    QTemporaryDir dir;
    const std::string target = QDir(dir.path()).filePath("kept.wav").toStdString();
    ASSERT_TRUE(stream->saveAs(target));
    const std::string savedBytes = test::fileBytes(target);
    EXPECT_EQ(savedBytes.substr(44), test::fileBytes(file.path()).substr(44));

    // The working copy loses its second half: the next save cannot be completed.
    std::filesystem::resize_file(stream->fileURL, 44 + frames);
    MessageCatcher messages;
    EXPECT_FALSE(stream->save());
    ASSERT_EQ(messages.texts.size(), 1u);
    EXPECT_EQ(messages.texts[0], "Can't save sound file");
    EXPECT_EQ(test::fileBytes(target), savedBytes);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path().toStdString()),
                            std::filesystem::directory_iterator()),
              1);
}

struct ImportCase
{
    const char *name;
    int format;
    int channels;
    bool lossy;
    const char *title = nullptr; // a LIST chunk before the data
};

TEST(WavStream, importsWhatTheWavReaderRefusesAsMono16Bit)
{
    const std::vector<ImportCase> cases = {
        {"flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, false},
        {"ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 2, true},
        {"mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, 2, true},
        {"aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 2, false},
        {"wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 2, false},
        {"wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, false},
        {"wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, 2, false},
        {"wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, false, "a title"},
    };
    const int rate = 44100;
    const int frames = 2 * rate;
    const double amplitude = 0.5;
    QTemporaryDir dir;
    int index = 0;
    for (const ImportCase &c : cases) {
        SCOPED_TRACE(std::to_string(index) + " " + c.name);
        const std::string path =
            QDir(dir.path()).filePath(QString("in%1.%2").arg(index++).arg(c.name)).toStdString();
        ASSERT_TRUE(test::writeSoundFile(path, c.format, c.channels, rate,
                                         test::leftSine(440.0, amplitude, frames, c.channels, rate),
                                         c.title));
        if (c.title) {
            const std::string bytes = test::fileBytes(path);
            ASSERT_LT(bytes.find("LIST"), bytes.find("data"));
        }
        auto stream = WavStream::createFromFile(path);
        ASSERT_NE(stream, nullptr);
        stream->waitForCopy();
        EXPECT_FALSE(stream->copying);
        EXPECT_EQ(stream->nChannels(), 1);
        EXPECT_EQ(stream->bytesPerSample(), 2);
        EXPECT_EQ(stream->minNominalY, -32768.0);
        EXPECT_DOUBLE_EQ(stream->sampleRate(), rate);
        const std::int64_t got = stream->maximumIndex();
        if (c.lossy) {
            EXPECT_NEAR(static_cast<double>(got), frames, 3000.0);
        } else {
            EXPECT_EQ(got, frames);
        }
        // Stereo is the mean of the channels: the silent right one halves the sine.
        const double expectedRMS =
            amplitude * 32768.0 / std::sqrt(2.0) / static_cast<double>(c.channels);
        const VolumeResultOC volume = stream->volume(rate / 2, rate);
        EXPECT_NEAR(volume.getRMS(), expectedRMS, expectedRMS * (c.lossy ? 0.05 : 0.001));
    }
}

TEST(WavStream, whatNothingCanReadIsRefusedWithAMessageAndNeverWaitedOn)
{
    QTemporaryDir dir;
    const std::string text = QDir(dir.path()).filePath("notes.wav").toStdString();
    {
        std::ofstream out(text);
        out << "not a sound at all, just some words in a file";
    }
    const std::string empty = QDir(dir.path()).filePath("empty.mp3").toStdString();
    std::ofstream(empty).close();
    const std::string missing = QDir(dir.path()).filePath("missing.wav").toStdString();
    // Opening a FIFO for reading waits for a writer: nothing may ever do that.
    const std::string fifo = QDir(dir.path()).filePath("fifo.wav").toStdString();
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);

    // Each named, with a reason of its own beneath the same text.
    const std::pair<std::string, std::string> refused[] = {
        {text, "not a sound file, or in an unsupported format ("},
        {empty, "the file is empty"},
        {missing, "no such file"},
        {dir.path().toStdString(), "not a regular file (a folder)"},
        {fifo, "not a regular file (a FIFO)"},
        {"/dev/zero", "not a regular file (a device)"},
        {"/dev/urandom", "not a regular file (a device)"}};
    for (const auto &[path, why] : refused) {
        MessageCatcher messages;
        auto opening = std::async(std::launch::async,
                                  [&path] { return WavStream::createFromFile(path) == nullptr; });
        if (opening.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
            // Lets a blocked open go, so that the test ends.
            const int writer = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
            opening.wait();
            ::close(writer);
            ADD_FAILURE() << path << " was waited on";
            continue;
        }
        EXPECT_TRUE(opening.get()) << path;
        ASSERT_EQ(messages.texts.size(), 1u) << path;
        EXPECT_EQ(messages.texts[0].toStdString(), "Can't read sound file");
        const std::string name = QFileInfo(QString::fromStdString(path)).fileName().toStdString();
        EXPECT_TRUE(messages.details[0].toStdString().starts_with('"' + name + "\": " + why))
            << messages.details[0].toStdString();
    }
}

// A 16-bit PCM WAV header for `channels` at `rate` announcing dataBytes, followed by
// `present` bytes of silence.
std::string wavBytes(int channels, std::uint32_t rate, std::uint32_t dataBytes, int present)
{
    std::string bytes(44, '\0');
    const auto put32 = [&](int at, std::uint32_t v) { std::memcpy(&bytes[at], &v, 4); };
    const auto put16 = [&](int at, std::uint16_t v) { std::memcpy(&bytes[at], &v, 2); };
    std::memcpy(&bytes[0], "RIFF", 4);
    put32(4, 36 + dataBytes);
    std::memcpy(&bytes[8], "WAVEfmt ", 8);
    put32(16, 16);
    put16(20, 1);
    put16(22, static_cast<std::uint16_t>(channels));
    put32(24, rate);
    put32(28, rate * 2 * static_cast<std::uint32_t>(channels));
    put16(32, static_cast<std::uint16_t>(2 * channels));
    put16(34, 16);
    std::memcpy(&bytes[36], "data", 4);
    put32(40, dataBytes);
    return bytes + std::string(static_cast<std::size_t>(present), '\0');
}

std::string written(const QTemporaryDir &dir, const char *name, const std::string &bytes)
{
    const std::string path = QDir(dir.path()).filePath(name).toStdString();
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

TEST(WavStream, ratesTooLowToSegmentAreRefusedNamingTheRate)
{
    QTemporaryDir dir;
    const std::string plain = written(dir, "slow.wav", wavBytes(1, 20, 4000, 4000));
    const std::string decoded = QDir(dir.path()).filePath("slow24.wav").toStdString();
    ASSERT_TRUE(test::writeSoundFile(decoded, SF_FORMAT_WAV | SF_FORMAT_PCM_24, 1, 20,
                                     test::leftSine(1.0, 0.5, 200, 1, 20)));
    for (const std::string &path : {plain, decoded}) {
        MessageCatcher messages;
        EXPECT_EQ(WavStream::createFromFile(path), nullptr) << path;
        ASSERT_EQ(messages.texts.size(), 1u) << path;
        EXPECT_TRUE(messages.texts[0].contains("20 Hz")) << messages.texts[0].toStdString();
    }
}

TEST(WavStream, ringBeyondWhatAWavFileHoldsIsLoweredWithAWarning)
{
    MaxLength longest(209.0);
    QTemporaryDir dir;
    for (const std::uint32_t rate : {192000u, 768000u}) {
        MessageCatcher messages;
        const std::string path = written(dir, "fast.wav", wavBytes(2, rate, 40000, 40000));
        auto opened = WavStream::createFromFile(path);
        ASSERT_NE(opened, nullptr) << rate;
        opened->waitForCopy();
        auto recording = WavStream::createForRecording(2, 2, rate);
        ASSERT_NE(recording, nullptr) << rate;
        for (const auto &stream : {opened, recording}) {
            EXPECT_LE(stream->maxFrames * stream->bytesPerFrame, INT_MAX) << rate;
            EXPECT_GT(stream->maxFrames, std::int64_t{INT_MAX / 8}) << rate;
        }
        ASSERT_EQ(messages.texts.size(), 2u) << rate;
        EXPECT_TRUE(messages.texts[0].contains("\"Max audio file length (minutes)\" 209"))
            << messages.texts[0].toStdString();
    }
}

TEST(WavStream, headersPromisingMoreThanTheFileHoldsAreWarnedOnEveryPath)
{
    QTemporaryDir dir;
    struct Case
    {
        const char *name;
        std::string bytes;
    };
    const std::vector<Case> cases = {
        {"short.wav", wavBytes(1, 44100, 88200, 44100)},         // the reader's own path
        {"huge.wav", wavBytes(1, 44100, 3200000000u, 88200)},    // beyond the reader: decoded
        {"unknown.wav", wavBytes(1, 44100, 0xFFFFFFFFu, 88200)}, // decoded
        {"empty-stereo.wav", wavBytes(2, 44100, 176400, 0)},     // no data at all
    };
    for (const Case &c : cases) {
        MessageCatcher messages;
        auto stream = WavStream::createFromFile(written(dir, c.name, c.bytes));
        if (stream)
            stream->waitForCopy();
        ASSERT_FALSE(messages.texts.empty()) << c.name;
        EXPECT_TRUE(messages.texts[0].contains("ends before")) << messages.texts[0].toStdString();
        EXPECT_TRUE(messages.texts[0].contains(QString::number(c.bytes.size() - 44) + " of"))
            << messages.texts[0].toStdString();
    }
    // A whole file says nothing.
    MessageCatcher quiet;
    auto whole = WavStream::createFromFile(written(dir, "whole.wav", wavBytes(1, 44100, 800, 800)));
    ASSERT_NE(whole, nullptr);
    whole->waitForCopy();
    EXPECT_TRUE(quiet.texts.empty());
}

TEST(WavStream, fileChangedWhileItIsCopiedIsNoticed)
{
    QTemporaryDir dir;
    const std::string path = written(dir, "moving.wav", wavBytes(1, 44100, 88200, 88200));
    for (const bool change : {false, true}) {
        MessageCatcher messages;
        // The copy waits behind this until the file has been rewritten.
        std::promise<void> rewritten;
        std::shared_future<void> done = rewritten.get_future().share();
        Quorval::copyQueue().async([done] { done.wait(); });
        auto stream = WavStream::createFromFile(path);
        ASSERT_NE(stream, nullptr);
        if (change)
            std::ofstream(path, std::ios::binary | std::ios::app) << std::string(100, 'x');
        rewritten.set_value();
        stream->waitForCopy();
        EXPECT_EQ(stream->changedWhileCopying.load(), change);
        EXPECT_EQ(messages.texts.size(), change ? 1u : 0u);
        if (change) {
            EXPECT_TRUE(messages.texts[0].contains("moving.wav changed while it was read"));
        }
    }
}

TEST(WavStream, describesTheFileAsItIsAndSaysWhenItWasConverted)
{
    QTemporaryDir dir;
    const std::string path = QDir(dir.path()).filePath("three.wav").toStdString();
    ASSERT_TRUE(test::writeSoundFile(path, SF_FORMAT_WAV | SF_FORMAT_PCM_24, 3, 48000,
                                     test::leftSine(440.0, 0.5, 48000, 3, 48000)));
    auto converted = WavStream::createFromFile(path);
    ASSERT_NE(converted, nullptr);
    const std::string text = converted->description();
    EXPECT_EQ(text.rfind("Number of channels 3\nBytes per sample 3\nFrame rate 48000\n", 0), 0u)
        << text;
    EXPECT_NE(text.find("Converted to 1 channel, 2 bytes per sample"), std::string::npos);
    auto plain = WavStream::createFromFile(written(dir, "plain.wav", wavBytes(2, 44100, 800, 800)));
    ASSERT_NE(plain, nullptr);
    EXPECT_EQ(plain->description().find("Converted"), std::string::npos);
}

TEST(WavStream, workingFilesAreNamedForTheirKindAndRemovedWithTheStream)
{
    QTemporaryDir dir;
    auto opened = WavStream::createFromFile(written(dir, "a.wav", wavBytes(1, 44100, 800, 800)));
    ASSERT_NE(opened, nullptr);
    opened->waitForCopy();
    auto recording = WavStream::createForRecording(1, 2, 44100.0);
    ASSERT_NE(recording, nullptr);
    EXPECT_FALSE(WorkingFiles::isRecording(opened->fileURL));
    EXPECT_TRUE(WorkingFiles::isRecording(recording->fileURL));
    EXPECT_NE(opened->fileURL.find("quorval-copy-"), std::string::npos);
    const std::string copyPath = opened->fileURL;
    ASSERT_TRUE(std::filesystem::exists(copyPath));
    // The last reference dropped on the calculation's queue: the removal happens elsewhere.
    Quorval::calcQueue().sync([&opened] { opened.reset(); });
    EXPECT_TRUE(test::waitUntil([] { return WorkingFiles::pendingRemovals() == 0; }));
    EXPECT_FALSE(std::filesystem::exists(copyPath));
}

} // namespace
} // namespace quorval
