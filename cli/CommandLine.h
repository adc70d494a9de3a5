#pragma once

#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

namespace quorval {

// What quorval-cli was asked to do, read from its arguments. Reading touches no option and no
// file, so that the option store can be pointed elsewhere before anything reads it.
struct CommandLine
{
    enum class Command
    {
        pitches,
        deviations,
        info,
        notes,
        key,
        options,
        render,
        record,
        play,
        devices,
        tone,
        help,
        version,
    };
    enum class Format
    {
        text,
        csv,
        json,
    };

    Command command = Command::help;
    QString file; // the sound file, or the options file to write
    Format format = Format::text;
    std::optional<double> fromSeconds;
    std::optional<double> toSeconds;
    int jobs = 1;             // analysis threads, >= 1
    bool useSettings = false; // read and write the user's option store
    bool developer = false;   // developer mode: the reports' debug lines
    // render: the picture's path, view ("composite" .. "spectrum"; empty: the "View type"
    // option), trace area in points and device pixel ratio.
    QString outputPath;
    QString view;
    int width = 1600;
    int height = 600;
    double scale = 1.0;
    std::optional<double> seconds; // record: stop after this long
    bool loop = false;             // play: again and again until interrupted
    QString device;                // record: the input to record from
    std::optional<double> speed;   // play: 0.5, 0.75 or 1
    // "--set Label=value" and "--options FILE.plist", applied in the order given.
    struct OptionStep
    {
        bool isFile = false; // an options file, else a "Label=value" text
        QString text;
    };
    std::vector<OptionStep> optionSteps;

    // Reads arguments (without the program name). On a mistake answers nothing and sets error
    // to a line for the user.
    static std::optional<CommandLine> parse(const QStringList &arguments, int defaultJobs,
                                            QString &error);

    static const char *usage();
    // The names --view takes, in the order of the "View type" choices.
    static const QStringList &renderViews();
};

} // namespace quorval
