#pragma once

#include "options/BooleanParameter.h"
#include "options/ChoiceParameter.h"
#include "options/DoubleParameter.h"
#include "options/IntParameter.h"
#include "options/Preset.h"
#include "options/StringParameter.h"
#include "options/ViewType.h"

#include <QChar>
#include <QHash>
#include <QMap>
#include <QVariantMap>

#include <atomic>
#include <vector>

namespace quorval {

// The application's complete, fixed set of options, grouped into the five pages of the options
// dialog and one page of hidden entries. Each option is defined here once, by its label; the
// rest of the program reaches it through a member or by label. Values live in the store, so
// several sets (tests make their own) see the same values.
// Thread: values may be read from any thread; changes, lists, presets and files on the main
// thread.
class Parameters
{
public:
    // "Key": twelve key names in two spellings, major and minor, entry i naming the same pitch
    // class in both. The spelling not in use is altChoices, so either is found when stored.
    class KeyParameter : public ChoiceParameter
    {
    public:
        KeyParameter();
        // Takes ASCII accidentals too: "C#" sets "C♯".
        bool setFromText(const QString &text) override;
        // Exchanges the spellings when minor differs from the one in use; the index stays.
        void setMinor(bool minor);

    private:
        std::atomic<bool> isMinor_{false};
    };

    // "Minor": its check box switches the key's spellings.
    class MinorParameter : public BooleanParameter
    {
    public:
        // Starts the key in the spelling of the stored value. key is not owned.
        explicit MinorParameter(KeyParameter &key);
        // The check box's action: the key list follows the box at once; the value itself is
        // stored when the dialog applies it.
        void minorButtonPushed(bool checked);
        // Also keeps the key's spelling in step with a value set from a file or preset.
        bool setValue(bool b) override;

    private:
        KeyParameter &key_;
    };

    // "Temperament": offers the short list and "Scala file..." unless developer mode is on or
    // a temperament beyond them is stored. Its index() is a position in the list offered (or
    // in the list of every name that extends it): name a temperament by value().
    class TemperamentParameter : public ChoiceParameter
    {
    public:
        TemperamentParameter();
        // Chooses the offered list for the given developer mode and the stored temperament.
        void updateChoices(bool developerMode);
    };

    // "Transposition": notes, keys and degrees are named in the written pitch of a transposing
    // instrument (a B♭ clarinet's written D sounds C); the analysis is unchanged.
    class TranspositionParameter : public ChoiceParameter
    {
    public:
        TranspositionParameter();
        // Takes ASCII accidentals too: "Bb" sets "B♭".
        bool setFromText(const QString &text) override;
        // Semitones from sounding to written pitch: B♭ +2, E♭ +9, F +7, A +3, G +5, D -2,
        // "Octave up" (sounds an octave above the written note) -12, "Octave down" +12;
        // 0 for concert pitch or a stored text that is no choice.
        int writtenMinusSounding() const;
    };

    // "Lowest Note" and "Highest Note": each within kLowestNote..kHighestNote and accepted only
    // strictly on its own side of the other (compared as stored, four decimals).
    class NoteLimitParameter : public DoubleParameter
    {
    public:
        // The note numbers of the usual note range, C-1 (8.2 Hz) to G9 (12.5 kHz): below the
        // lowest organ pipe (C0, 16.4 Hz) and above the highest fundamental any instrument
        // plays (a piccolo's C8). Beyond them the display's lines and the analysis segments
        // grow without bound and show nothing a musician can use.
        static constexpr double kLowestNote = 0.0;
        static constexpr double kHighestNote = 127.0;
        enum class End
        {
            lowest,
            highest,
        };
        explicit NoteLimitParameter(End end);
        const End end;
        // The other end of the range; set once by the option set. Not owned.
        void setOther(const NoteLimitParameter *other) { other_ = other; }
        QString allowedValues() const override;

    protected:
        bool accepts(double x) const override;

    private:
        const NoteLimitParameter *other_ = nullptr;
    };
    using LowestNoteParameter = NoteLimitParameter;
    using HighestNoteParameter = NoteLimitParameter;

    // "Max audio file length (minutes)": the longest sound kept, in minutes (1 to 209).
    class MaxFileLengthParameter : public DoubleParameter
    {
    public:
        MaxFileLengthParameter();
    };

    // "Input device": the sound server's input to record from, by its description; "Default"
    // follows the server's default. A name the server does not list now is kept (a device
    // plugged in later); the recorder then records from the default and says so.
    class InputDeviceParameter : public ChoiceParameter
    {
    public:
        InputDeviceParameter();
        static QString defaultDevice() { return QStringLiteral("Default"); }
        // The name as stored, listed or not.
        QString valueText() const override;
        // Any name of at most 256 printable characters.
        bool setFromText(const QString &text) override;
        QString allowedValues() const override;
        // What the dialog lists: "Default" and the inputs the server offers now. Main thread.
        void offerDevices(const QStringList &names);
    };

    // One page of options; the hidden page has an empty tab identifier.
    struct Page
    {
        QString tabIdentifier;
        std::vector<Parameter *> parameters;
    };

    // The key as the scale needs it: index into the key lists (-1 when unknown), and "Minor".
    struct CurrentKey
    {
        int index = -1;
        bool minor = false;
    };

    Parameters();
    Parameters(const Parameters &) = delete;
    Parameters &operator=(const Parameters &) = delete;

    // The set the application uses, made on first use and kept for the whole run.
    static Parameters &shared();

    static const QStringList &majorKeyNames();
    static const QStringList &minorKeyNames();
    static const QStringList &temperamentNames();
    static const QStringList &shortTemperamentNames();
    // The last "Temperament" choice, "Scala file...": the tuning of "Scala file" and
    // "Keyboard mapping file" takes the temperament's place.
    static QString scalaTemperamentName();

    // Page "Scale".
    KeyParameter key;
    MinorParameter minor;
    TemperamentParameter temperament;
    ChoiceParameter completeness;
    DoubleParameter aFrequency;
    LowestNoteParameter lowestNote;
    HighestNoteParameter highestNote;
    DoubleParameter scaleExtension;
    StringParameter scalaFile;           // path of a .scl file
    StringParameter keyboardMappingFile; // path of a .kbm file, empty for none
    TranspositionParameter transposition;
    // Page "View".
    ChoiceParameter viewType;
    DoubleParameter traceHeight;
    BooleanParameter automaticGainControl;
    BooleanParameter tuning;
    BooleanParameter showNoteNamesOnGrid;
    ChoiceParameter labelPianoKeys;
    DoubleParameter preferredDisplayLength;
    DoubleParameter qualityThreshold;
    DoubleParameter volumeThreshold;
    DoubleParameter zoomIncrement;
    // Page "Process".
    DoubleParameter response;
    DoubleParameter frameOverlap;
    IntParameter numberOfInclusivePeaks;
    DoubleParameter inclusiveGoodnessThreshold;
    DoubleParameter minimumPeakThreshold;
    DoubleParameter peakThresholdIncrement;
    DoubleParameter dbNoiseLimit;
    // On by default: each segment's pitch is checked against its octaves and measured to a
    // fraction of a cent, with a goodness of its own; off, the analysis is the harmonic search
    // alone.
    BooleanParameter refinePitch;
    // Page "Audio".
    ChoiceParameter analyzeStereoChannel;
    BooleanParameter oneTouchPlayRecord;
    MaxFileLengthParameter maxAudioFileLength;
    InputDeviceParameter inputDevice;
    // Page "Files".
    BooleanParameter checkForModifiedFiles;
    ChoiceParameter checkForUpdatesOnStartup;
    // Hidden page.
    StringParameter lastversion;
    StringParameter ignoreUpdateVersion;
    DoubleParameter lastUpdateCheck;

    // Scale, View, Process, Audio, Files, hidden.
    const std::vector<Page> &allPages() const { return allPages_; }
    // The first five pages, with their tab identifiers.
    std::vector<Page> dialogPages() const;
    // The option a file's key names: by label, or by legacyName. Null when none.
    Parameter *findForKey(const QString &key) const;

    // The first letter of "View type" ('C', 'R', 'A', 'P', 'Q', 'S'); a null QChar when the
    // stored text is none of the choices.
    QChar viewTypeLetter() const;
    // The view type in force; Composite when the stored text is none of the choices.
    ViewType currentViewType() const;
    // Stores the full choice text, e.g. "Pitch"; refuses a text that is no choice.
    bool setViewType(const QString &choice);
    // "Letters", "Numbers" or "None"; empty when the stored text is none of them.
    QString pianoKeyLabelling() const;
    CurrentKey currentKey() const;
    void setLastVersion(const QString &version);
    void setIgnoreUpdateVersion(const QString &version);

    // An entry of an imported dictionary that was left out: its key, its value as text and why.
    struct RefusedEntry
    {
        QString key;
        QString value;
        QString reason;
        // "\"Key\" refused the value \"Zzz\": it takes one of C, B, …" for messages.
        QString text() const;
    };

    // Every option of the dialog pages (debug ones included) as label -> text.
    QMap<QString, QString> exportOptions() const;
    // Sets options from a dictionary: nested dictionaries are walked as if their entries stood
    // at the top; string entries go to the option named by the key (label or legacyName);
    // other keys are ignored. Each entry stands alone; one refused is tried once more after the
    // rest, because the note range rules depend on the order of setting. Answers the entries of
    // known options that were still refused (a value no string, or one the option refuses).
    std::vector<RefusedEntry> importOptions(const QVariantMap &dictionary);

    // The presets in menu order, built on first use.
    std::vector<Preset> &presets();
    // Applies the values of the first preset named title, in order. False when none is named so.
    bool presetSelected(const QString &title);
    // Whether every value of the preset is in force; doubles are compared as numbers.
    static bool matches(const Preset &preset);

private:
    std::vector<Page> allPages_;
    QHash<QString, Parameter *> allByName_;
    QHash<QString, Parameter *> byLegacyName_;
    std::vector<Preset> presets_;
};

} // namespace quorval
