#include "cli/CommandLine.h"

#include "options/Parameters.h"
#include "options/ViewType.h"

#include <QFileInfo>

#include <algorithm>
#include <cmath>

namespace quorval {

namespace {

std::optional<double> secondsFrom(const QString &text)
{
    bool ok = false;
    const double value = text.toDouble(&ok);
    if (!ok || !std::isfinite(value) || value < 0.0)
        return std::nullopt;
    return value;
}

} // namespace

const QStringList &CommandLine::renderViews()
{
    static const QStringList views = [] {
        QStringList names;
        for (const ViewTypeNames &type : kViewTypes)
            names.append(QLatin1String(type.commandLine));
        return names;
    }();
    return views;
}

const char *CommandLine::usage()
{
    return "Usage: quorval-cli [options] COMMAND FILE\n"
           "\n"
           "Commands:\n"
           "  pitches FILE     one line per segment: index, time (s), pitch (note number, -1 for\n"
           "                   none), goodness, frequency (Hz, 0 for none) and deviation from the\n"
           "                   nearest grid line (cents, 0 for none)\n"
           "  deviations FILE  the deviation statistics of the stretch (whole sound by default)\n"
           "  notes FILE       the intonation of each note and of each scale degree\n"
           "  key FILE         the key and mode the notes suggest, then how sure that is (0 to 1)\n"
           "  info FILE        the sound file's description\n"
           "  render FILE -o OUT.png\n"
           "                   draws the trace with its keyboard and ruler into a PNG (or SVG);\n"
           "                   the spectrum is that of the segment in the stretch's middle\n"
           "  record FILE.wav  records the input (\"Input device\") into FILE.wav until Ctrl-C\n"
           "  devices          lists the sound server's inputs and outputs (* the defaults)\n"
           "  tone NOTE        plays the scale's grid pitch of NOTE (A4, F#3, Bb2 or a note\n"
           "                   number, written for the \"Transposition\") in the key, temperament\n"
           "                   and A frequency in force\n"
           "  play FILE        plays the sound (the stretch of --from/--to) to the end\n"
           "  options --write FILE.plist\n"
           "                   writes the options in force to an options file\n"
           "\n"
           "Options:\n"
           "  --from S, --to S     the stretch in seconds (deviations, notes, key, render, play)\n"
           "  -o, --output FILE    the picture to write (render)\n"
           "  --view V             composite, rms, amplitude, pitch, quality or spectrum\n"
           "                       (render; default: the \"View type\" option)\n"
           "  --width W, --height H  trace area in points (render; default 1600 x 600)\n"
           "  --scale F            device pixel ratio of the picture (render; default 1)\n"
           "  --seconds N          record: stop after N seconds; tone: play N seconds (3)\n"
           "  --device NAME        record: the input to record from, as devices lists it\n"
           "  --loop               play: again and again until Ctrl-C\n"
           "  --speed F            play: 0.5 or 0.75 for slower at the same pitch (1)\n"
           "  --csv, --json        table formats with headers (pitches, notes)\n"
           "  --scala FILE.scl     the tuning of a scale file in the Scala archive's format\n"
           "                       in place of the temperament (every command)\n"
           "  --kbm FILE.kbm       with --scala: a keyboard mapping for it\n"
           "  --set \"Label=value\"  sets an option for this run (repeatable)\n"
           "  --options FILE.plist imports an options file for this run (else the key of\n"
           "                       FILE.plist beside the sound FILE.wav is taken)\n"
           "  --use-settings       reads and writes the user's own option store\n"
           "  --jobs N             analysis threads (default: all cores)\n"
           "  --developer          developer mode: extra report lines\n"
           "  --version            the program's version\n"
           "  --help               this text\n";
}

std::optional<CommandLine> CommandLine::parse(const QStringList &arguments, int defaultJobs,
                                              QString &error)
{
    CommandLine line;
    line.jobs = std::max(1, defaultJobs);
    QStringList positional;
    bool writeOptions = false;
    std::optional<QString> mapping;
    for (qsizetype k = 0; k < arguments.size(); ++k) {
        const QString &argument = arguments[k];
        auto value = [&]() -> std::optional<QString> {
            if (k + 1 >= arguments.size()) {
                error = QStringLiteral("%1 needs a value").arg(argument);
                return std::nullopt;
            }
            return arguments[++k];
        };
        if (argument == QLatin1String("--help") || argument == QLatin1String("-h")) {
            line.command = Command::help;
            return line;
        }
        if (argument == QLatin1String("--version")) {
            line.command = Command::version;
            return line;
        }
        if (argument == QLatin1String("--csv")) {
            line.format = Format::csv;
        } else if (argument == QLatin1String("--json")) {
            line.format = Format::json;
        } else if (argument == QLatin1String("--use-settings")) {
            line.useSettings = true;
        } else if (argument == QLatin1String("--developer")) {
            line.developer = true;
        } else if (argument == QLatin1String("--loop")) {
            line.loop = true;
        } else if (argument == QLatin1String("--write")) {
            writeOptions = true;
        } else if (argument == QLatin1String("--set") || argument == QLatin1String("--options")) {
            const auto text = value();
            if (!text)
                return std::nullopt;
            line.optionSteps.push_back({argument == QLatin1String("--options"), *text});
        } else if (argument == QLatin1String("--scala") || argument == QLatin1String("--kbm")) {
            const auto text = value();
            if (!text)
                return std::nullopt;
            // The store keeps the path for later runs and the window: make it whole.
            const QString path = QFileInfo(*text).absoluteFilePath();
            if (argument == QLatin1String("--kbm")) {
                mapping = path;
            } else {
                line.optionSteps.push_back({false, QStringLiteral("Scala file=") + path});
                // A mapping chosen before belongs to another scale.
                line.optionSteps.push_back({false, QStringLiteral("Keyboard mapping file=")});
                line.optionSteps.push_back(
                    {false, QStringLiteral("Temperament=") + Parameters::scalaTemperamentName()});
            }
        } else if (argument == QLatin1String("--speed")) {
            const auto text = value();
            if (!text)
                return std::nullopt;
            bool ok = false;
            line.speed = text->toDouble(&ok);
            if (!ok || !(*line.speed == 0.5 || *line.speed == 0.75 || *line.speed == 1.0)) {
                error = QStringLiteral("--speed takes 0.5, 0.75 or 1, not \"%1\"").arg(*text);
                return std::nullopt;
            }
        } else if (argument == QLatin1String("--device")) {
            const auto text = value();
            if (!text)
                return std::nullopt;
            line.device = *text;
        } else if (argument == QLatin1String("--seconds")) {
            const auto text = value();
            if (!text)
                return std::nullopt;
            line.seconds = secondsFrom(*text);
            if (!line.seconds || *line.seconds <= 0.0) {
                error = QStringLiteral("--seconds needs a number of seconds above 0, not \"%1\"")
                            .arg(*text);
                return std::nullopt;
            }
        } else if (argument == QLatin1String("--from") || argument == QLatin1String("--to")) {
            const auto text = value();
            if (!text)
                return std::nullopt;
            const auto seconds = secondsFrom(*text);
            if (!seconds) {
                error =
                    QStringLiteral("%1 needs a number of seconds, not \"%2\"").arg(argument, *text);
                return std::nullopt;
            }
            (argument == QLatin1String("--from") ? line.fromSeconds : line.toSeconds) = seconds;
        } else if (argument == QLatin1String("-o") || argument == QLatin1String("--output")) {
            const auto text = value();
            if (!text)
                return std::nullopt;
            line.outputPath = *text;
        } else if (argument == QLatin1String("--view")) {
            const auto text = value();
            if (!text)
                return std::nullopt;
            if (!renderViews().contains(*text)) {
                error = QStringLiteral("--view needs one of %1, not \"%2\"")
                            .arg(renderViews().join(QStringLiteral(", ")), *text);
                return std::nullopt;
            }
            line.view = *text;
        } else if (argument == QLatin1String("--width") || argument == QLatin1String("--height")) {
            const auto text = value();
            if (!text)
                return std::nullopt;
            bool ok = false;
            const int points = text->toInt(&ok);
            if (!ok || points < 16 || points > 16384) {
                error = QStringLiteral("%1 needs a whole number of points from 16 to 16384")
                            .arg(argument);
                return std::nullopt;
            }
            (argument == QLatin1String("--width") ? line.width : line.height) = points;
        } else if (argument == QLatin1String("--scale")) {
            const auto text = value();
            if (!text)
                return std::nullopt;
            bool ok = false;
            line.scale = text->toDouble(&ok);
            if (!ok || !(line.scale >= 0.25 && line.scale <= 8.0)) {
                error = QStringLiteral("--scale needs a number from 0.25 to 8");
                return std::nullopt;
            }
        } else if (argument == QLatin1String("--jobs")) {
            const auto text = value();
            if (!text)
                return std::nullopt;
            bool ok = false;
            line.jobs = text->toInt(&ok);
            if (!ok || line.jobs < 1 || line.jobs > 1024) {
                error = QStringLiteral("--jobs needs a whole number from 1 to 1024");
                return std::nullopt;
            }
        } else if (argument.startsWith(QLatin1String("--"))) {
            error = QStringLiteral("unknown option %1").arg(argument);
            return std::nullopt;
        } else {
            positional.push_back(argument);
        }
    }
    if (mapping) {
        const bool withScale = std::any_of(
            line.optionSteps.begin(), line.optionSteps.end(), [](const OptionStep &step) {
                return step.text.startsWith(QLatin1String("Scala file="));
            });
        if (!withScale) {
            error = QStringLiteral("--kbm maps the keys of a scale: give --scala FILE.scl too");
            return std::nullopt;
        }
        line.optionSteps.push_back({false, QStringLiteral("Keyboard mapping file=") + *mapping});
    }
    if (positional.size() == 1 && positional[0] == QLatin1String("devices")) {
        line.command = Command::devices;
        if (!line.device.isEmpty()) {
            error = QStringLiteral("--device belongs to the record command");
            return std::nullopt;
        }
        return line;
    }
    if (positional.size() != 2) {
        error = positional.isEmpty() ? QStringLiteral("no command given")
                                     : QStringLiteral("expected a command and one file");
        return std::nullopt;
    }
    const QString &command = positional[0];
    line.file = positional[1];
    if (command == QLatin1String("pitches"))
        line.command = Command::pitches;
    else if (command == QLatin1String("deviations"))
        line.command = Command::deviations;
    else if (command == QLatin1String("notes"))
        line.command = Command::notes;
    else if (command == QLatin1String("key"))
        line.command = Command::key;
    else if (command == QLatin1String("info"))
        line.command = Command::info;
    else if (command == QLatin1String("render"))
        line.command = Command::render;
    else if (command == QLatin1String("record"))
        line.command = Command::record;
    else if (command == QLatin1String("play"))
        line.command = Command::play;
    else if (command == QLatin1String("tone"))
        line.command = Command::tone;
    else if (command == QLatin1String("options") && writeOptions)
        line.command = Command::options;
    else {
        error = command == QLatin1String("options")
                    ? QStringLiteral("options needs --write FILE.plist")
                    : QStringLiteral("unknown command %1").arg(command);
        return std::nullopt;
    }
    if (writeOptions && line.command != Command::options) {
        error = QStringLiteral("--write belongs to the options command");
        return std::nullopt;
    }
    if ((line.command == Command::render) == line.outputPath.isEmpty()) {
        error = line.outputPath.isEmpty() ? QStringLiteral("render needs -o OUT.png")
                                          : QStringLiteral("-o belongs to the render command");
        return std::nullopt;
    }
    if (line.seconds && line.command != Command::record && line.command != Command::tone) {
        error = QStringLiteral("--seconds belongs to the record and tone commands");
        return std::nullopt;
    }
    if (!line.device.isEmpty() && line.command != Command::record) {
        error = QStringLiteral("--device belongs to the record command");
        return std::nullopt;
    }
    if (line.speed && line.command != Command::play) {
        error = QStringLiteral("--speed belongs to the play command");
        return std::nullopt;
    }
    if (line.loop && line.command != Command::play) {
        error = QStringLiteral("--loop belongs to the play command");
        return std::nullopt;
    }
    return line;
}

} // namespace quorval
