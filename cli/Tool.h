#pragma once

#include "cli/CommandLine.h"
#include "streams/MusicStream.h"

#include <QString>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace quorval {

class WavStream;

// quorval-cli's commands over the same streams and work queues as the window. Output goes to
// out, messages (the system's texts, prefixed with "quorval-cli: ") and progress to stderr.
// Runs on the thread that installed the main poster; reads and sets the options in force.
class Tool
{
public:
    // Exit statuses.
    static constexpr int kOk = 0;
    static constexpr int kFailed = 1;   // a file could not be read or written
    static constexpr int kBadUsage = 2; // the arguments or an option were refused

    explicit Tool(std::FILE *out) : out(out) {}

    // Applies the option steps, then runs the command. Answers the exit status: kFailed also
    // when the sound file changed while it was read (after the output and a warning).
    int run(const CommandLine &line);

    // Frames a recording of seconds (none: as long as it may) keeps at rate frames a second,
    // from 0 to maxFrames, whatever the number of seconds.
    static std::int64_t framesToRecord(std::optional<double> seconds, double rate,
                                       std::int64_t maxFrames);

    // Writes the text of a JSON string, quotes included.
    static std::string jsonString(const std::string &text);

private:
    bool applyOptions(const CommandLine &line);
    // False after a message naming the file and line at fault when the temperament in force is
    // a scale file that cannot be read.
    static bool tuningReads();
    // The sound of line.file with every segment analysed, or null after a message.
    std::shared_ptr<MusicStream> openAndAnalyse(const CommandLine &line);
    // The sound file, or null after a message naming it.
    static std::shared_ptr<WavStream> openSound(const QString &file);
    // line's stretch in seconds; {0, 0} (the whole sound) when none given. Nothing, after a
    // message naming the sound's length, when it lies outside the sound (whole), runs backwards
    // or is empty.
    static std::optional<std::pair<double, double>> stretchOf(const CommandLine &line,
                                                              const MusicStream::TimeRange &whole);
    // The analysed sound of line.file and line's stretch in seconds; nothing after a message,
    // with status set to the exit status.
    struct Stretch
    {
        std::shared_ptr<MusicStream> music;
        double t0 = 0.0;
        double t1 = 0.0;
    };
    std::optional<Stretch> openStretch(const CommandLine &line, int &status);
    int pitches(const CommandLine &line);
    int deviations(const CommandLine &line);
    int notes(const CommandLine &line);
    int key(const CommandLine &line);
    int info(const CommandLine &line);
    int options(const CommandLine &line);
    // Draws the trace of line's stretch into line.outputPath (cli/Render.cpp).
    int render(const CommandLine &line);
    // Recording and playing through the sound server (AudioCommands.cpp).
    int record(const CommandLine &line);
    int devices();
    int tone(const CommandLine &line);
    int play(const CommandLine &line);
    void print(const std::string &text);
    static void complain(const QString &text);

    std::FILE *out;
    bool soundChanged = false; // the sound file changed while it was read
};

} // namespace quorval
