#include "options/Parameters.h"

#include "options/DeveloperMode.h"
#include "options/Messages.h"
#include "options/NoteNames.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace quorval {

namespace {

using Range = DoubleParameter::Range;

QStringList strings(std::initializer_list<const char16_t *> texts)
{
    QStringList list;
    for (const char16_t *text : texts)
        list.append(QString::fromUtf16(text));
    return list;
}

} // namespace

const QStringList &Parameters::majorKeyNames()
{
    static const QStringList names =
        strings({u"C", u"B", u"B\u266D", u"A", u"A\u266D", u"G", u"G\u266D", u"F", u"E", u"E\u266D",
                 u"D", u"D\u266D"});
    return names;
}

const QStringList &Parameters::minorKeyNames()
{
    static const QStringList names =
        strings({u"C", u"B", u"B\u266D", u"A", u"G\u266F", u"G", u"F\u266F", u"F", u"E", u"E\u266D",
                 u"D", u"C\u266F"});
    return names;
}

const QStringList &Parameters::temperamentNames()
{
    static const QStringList names = strings(
        {u"Equal", u"Just", u"Pythagorean", u"Salinas", u"Mean Tone", u"Silberman", u"Lehman",
         u"Kirnberger", u"Vallotti", u"Werckmeister", u"Bagpipes", u"Scala file..."});
    return names;
}

QString Parameters::scalaTemperamentName()
{
    return temperamentNames().back();
}

const QStringList &Parameters::shortTemperamentNames()
{
    static const QStringList names = strings({u"Equal", u"Just", u"Pythagorean"});
    return names;
}

Parameters::KeyParameter::KeyParameter()
    : ChoiceParameter(QStringLiteral("Key"), majorKeyNames(), minorKeyNames(), QStringLiteral("A"),
                      {.recolor = true})
{
}

bool Parameters::KeyParameter::setFromText(const QString &text)
{
    return ChoiceParameter::setFromText(withAccidentalSigns(text));
}

void Parameters::KeyParameter::setMinor(bool minor)
{
    if (minor == isMinor_.load())
        return;
    isMinor_.store(minor);
    if (minor)
        setChoices(minorKeyNames(), majorKeyNames());
    else
        setChoices(majorKeyNames(), minorKeyNames());
}

Parameters::MinorParameter::MinorParameter(KeyParameter &key)
    : BooleanParameter(QStringLiteral("Minor"), false, {.recolor = true}), key_(key)
{
    key_.setMinor(value());
}

void Parameters::MinorParameter::minorButtonPushed(bool checked)
{
    key_.setMinor(checked);
}

bool Parameters::MinorParameter::setValue(bool b)
{
    const bool accepted = BooleanParameter::setValue(b);
    key_.setMinor(value());
    return accepted;
}

Parameters::TemperamentParameter::TemperamentParameter()
    : ChoiceParameter(QStringLiteral("Temperament"), temperamentNames(), std::nullopt, std::nullopt,
                      {.recolor = true})
{
    updateChoices(developerMode());
}

void Parameters::TemperamentParameter::updateChoices(bool developerMode)
{
    if (!developerMode) {
        const std::optional<QString> stored = storedText();
        const qsizetype storedIndex = stored ? temperamentNames().indexOf(*stored) : -1;
        // "Greater or equal", as the earlier edition did: a stored "Salinas" (just past the
        // short list) still gets the short list, so options files behave as they always have.
        if (shortTemperamentNames().size() >= storedIndex || stored == scalaTemperamentName()) {
            // The short list and a tuning file. Its entries keep their places in the list of
            // every name, which an entry is found by; the rest follow.
            QStringList offered = shortTemperamentNames();
            offered.append(scalaTemperamentName());
            QStringList all = offered;
            for (const QString &name : temperamentNames())
                if (!all.contains(name))
                    all.append(name);
            setChoices(offered, all);
            return;
        }
    }
    setChoices(temperamentNames(), std::nullopt);
}

Parameters::TranspositionParameter::TranspositionParameter()
    : ChoiceParameter(QStringLiteral("Transposition"),
                      strings({u"Concert pitch", u"B\u266D", u"E\u266D", u"F", u"A", u"G", u"D",
                               u"Octave up", u"Octave down"}),
                      std::nullopt, std::nullopt, {.recolor = true})
{
}

bool Parameters::TranspositionParameter::setFromText(const QString &text)
{
    // Only a short name is a key's: "Concert pitch" keeps its letters.
    return ChoiceParameter::setFromText(text.trimmed().size() <= 2 ? withAccidentalSigns(text)
                                                                   : text);
}

int Parameters::TranspositionParameter::writtenMinusSounding() const
{
    static constexpr int kSemitones[] = {0, 2, 9, 7, 3, 5, -2, -12, 12};
    const int i = index();
    return i >= 0 && i < int(std::size(kSemitones)) ? kSemitones[i] : 0;
}

// The lowest note re-cuts the segments (their length follows it); the highest only recomputes.
Parameters::NoteLimitParameter::NoteLimitParameter(End end)
    : DoubleParameter(end == End::lowest ? QStringLiteral("Lowest Note")
                                         : QStringLiteral("Highest Note"),
                      end == End::lowest ? 55.0 : 91.0, Range{kLowestNote, kHighestNote},
                      {.resegment = end == End::lowest, .recompute = end == End::highest}),
      end(end)
{
}

bool Parameters::NoteLimitParameter::accepts(double x) const
{
    if (!DoubleParameter::accepts(x))
        return false;
    if (!other_)
        return true;
    return end == End::lowest ? x < other_->value() : x > other_->value();
}

QString Parameters::NoteLimitParameter::allowedValues() const
{
    if (!other_)
        return DoubleParameter::allowedValues();
    return QStringLiteral("a number from %1 to %2 %3 \"%4\", now %5")
        .arg(QString::number(minValue), QString::number(maxValue),
             end == End::lowest ? QStringLiteral("below") : QStringLiteral("above"), other_->name,
             QString::number(other_->value()));
}

Parameters::MaxFileLengthParameter::MaxFileLengthParameter()
    : DoubleParameter(QStringLiteral("Max audio file length (minutes)"), 74.0, Range{1.0, 209.0})
{
}

Parameters::InputDeviceParameter::InputDeviceParameter()
    : ChoiceParameter(QStringLiteral("Input device"), {defaultDevice()}, std::nullopt,
                      defaultDevice())
{
}

QString Parameters::InputDeviceParameter::valueText() const
{
    return storedText().value_or(defaultDevice());
}

bool Parameters::InputDeviceParameter::setFromText(const QString &text)
{
    const QString name = text.trimmed();
    if (name.isEmpty() || name.size() > 256 ||
        std::any_of(name.begin(), name.end(), [](QChar c) { return !c.isPrint(); }))
        return false;
    if (name != valueText())
        store(name);
    return true;
}

QString Parameters::InputDeviceParameter::allowedValues() const
{
    return QStringLiteral("Default or an input's name as \"quorval-cli devices\" lists it");
}

void Parameters::InputDeviceParameter::offerDevices(const QStringList &names)
{
    QStringList offered{defaultDevice()};
    // The chosen one stays listed while it is away, so the dialog shows what is in force.
    for (const QString &name : names + QStringList{valueText()})
        if (!offered.contains(name))
            offered.append(name);
    setChoices(offered, std::nullopt);
}

Parameters::Parameters()
    : minor(key), completeness(QStringLiteral("Completeness"),
                               strings({u"Chromatic", u"Diatonic+2", u"Diatonic"}), std::nullopt,
                               std::nullopt, {.recolor = true}),
      aFrequency(QStringLiteral("A Frequency"), 440.0, Range{400.0, 499.0}, {.recompute = true}),
      lowestNote(NoteLimitParameter::End::lowest), highestNote(NoteLimitParameter::End::highest),
      scaleExtension(QStringLiteral("Scale extension"), 2.0, Range{0.0, 12.0},
                     {.recompute = true, .debug = true}),
      // A tuning of its own redraws the grid, as a temperament does.
      scalaFile(QStringLiteral("Scala file"), {.recolor = true},
                QStringLiteral("Scala scale files (*.scl);;All files (*)")),
      keyboardMappingFile(QStringLiteral("Keyboard mapping file"), {.recolor = true},
                          QStringLiteral("Keyboard mappings (*.kbm);;All files (*)")),
      viewType(QStringLiteral("View type"), viewTypeChoices(), std::nullopt, std::nullopt),
      traceHeight(QStringLiteral("Trace Height"), 0.2, Range{0.0, 1000.0}),
      automaticGainControl(QStringLiteral("Automatic Gain Control"), true),
      tuning(QStringLiteral("Tuning"), false, {.recolor = true}),
      showNoteNamesOnGrid(QStringLiteral("Show note names on grid"), false, {.redisplay = true}),
      labelPianoKeys(QStringLiteral("Label Piano Keys"), strings({u"Letters", u"Numbers", u"None"}),
                     std::nullopt, std::nullopt, {.redisplay = true}),
      preferredDisplayLength(QStringLiteral("Preferred display length"), 10.0, Range{0.1, 3600.0},
                             {.debug = true}),
      qualityThreshold(QStringLiteral("Quality threshold"), 100.0, Range{0.0, 1000.0},
                       {.debug = true}),
      volumeThreshold(QStringLiteral("Volume threshold"), 0.2, Range{0.0, 1.0}, {.debug = true}),
      zoomIncrement(QStringLiteral("Zoom increment"), 1.41421356, Range{1.09, 2.0},
                    {.debug = true}),
      response(QStringLiteral("Response"), 4.0, Range{1.0, 10.0}, {.resegment = true}),
      frameOverlap(QStringLiteral("Frame overlap"), 0.5, Range{0.1, 0.9},
                   {.resegment = true, .debug = true}),
      numberOfInclusivePeaks(QStringLiteral("Number of inclusive peaks"), 2,
                             IntParameter::Range{1, 4}, {.recompute = true, .debug = true}),
      inclusiveGoodnessThreshold(QStringLiteral("Inclusive Goodness Threshold"), 0.9,
                                 Range{0.0, 1.0}, {.recompute = true, .debug = true}),
      minimumPeakThreshold(QStringLiteral("Minimum Peak Threshold"), 0.5, std::nullopt,
                           {.recompute = true, .debug = true}),
      peakThresholdIncrement(QStringLiteral("Peak Threshold Increment"), std::sqrt(2.0),
                             std::nullopt, {.recompute = true, .debug = true}),
      // 20 log10(2^-17): the quietest level a 16-bit sample can hold, and some.
      dbNoiseLimit(QStringLiteral("dB noise limit"), -102.35019852575361, std::nullopt,
                   {.recompute = true, .debug = true}),
      refinePitch(QStringLiteral("Refine pitch"), true, {.recompute = true}),
      analyzeStereoChannel(QStringLiteral("Analyze Stereo Channel"),
                           strings({u"Left", u"Both", u"Right"}), std::nullopt,
                           QStringLiteral("Both"), {.recompute = true}),
      oneTouchPlayRecord(QStringLiteral("One touch play/record"), true),
      checkForModifiedFiles(QStringLiteral("Check for Modified Files"), true),
      checkForUpdatesOnStartup(QStringLiteral("Check for Updates on Startup"),
                               strings({u"Always", u"Once", u"Never"}), std::nullopt, std::nullopt),
      lastversion(QStringLiteral("lastversion")),
      ignoreUpdateVersion(QStringLiteral("Ignore update version")),
      lastUpdateCheck(QStringLiteral("Last Update Check"), 0.0, std::nullopt)
{
    lowestNote.setOther(&highestNote);
    highestNote.setOther(&lowestNote);

    allPages_ = {
        {QStringLiteral("ScaleTab"),
         {&key, &minor, &temperament, &scalaFile, &keyboardMappingFile, &transposition,
          &completeness, &aFrequency, &lowestNote, &highestNote, &scaleExtension}},
        {QStringLiteral("ViewTab"),
         {&viewType, &traceHeight, &automaticGainControl, &tuning, &showNoteNamesOnGrid,
          &labelPianoKeys, &preferredDisplayLength, &qualityThreshold, &volumeThreshold,
          &zoomIncrement}},
        {QStringLiteral("ProcessTab"),
         {&response, &frameOverlap, &numberOfInclusivePeaks, &inclusiveGoodnessThreshold,
          &minimumPeakThreshold, &peakThresholdIncrement, &dbNoiseLimit, &refinePitch}},
        {QStringLiteral("AudioTab"),
         {&inputDevice, &analyzeStereoChannel, &oneTouchPlayRecord, &maxAudioFileLength}},
        {QStringLiteral("FilesTab"), {&checkForModifiedFiles, &checkForUpdatesOnStartup}},
        {QString(), {&lastversion, &ignoreUpdateVersion, &lastUpdateCheck}},
    };
    for (const Page &page : allPages_) {
        for (Parameter *p : page.parameters) {
            allByName_.insert(p->name, p);
            if (p->legacyName)
                byLegacyName_.insert(*p->legacyName, p);
        }
    }
}

Parameters &Parameters::shared()
{
    // Never destroyed: work queues may still read options while the program exits.
    static Parameters *const parameters = new Parameters;
    return *parameters;
}

std::vector<Parameters::Page> Parameters::dialogPages() const
{
    return {allPages_.begin(), allPages_.end() - 1};
}

Parameter *Parameters::findForKey(const QString &key) const
{
    if (Parameter *p = allByName_.value(key))
        return p;
    return byLegacyName_.value(key);
}

QChar Parameters::viewTypeLetter() const
{
    const QString type = viewType.value();
    return type.isEmpty() ? QChar() : type.front();
}

ViewType Parameters::currentViewType() const
{
    return viewTypeOfLetter(viewTypeLetter()).value_or(ViewType::Composite);
}

bool Parameters::setViewType(const QString &choice)
{
    return viewType.setValue(choice);
}

QString Parameters::pianoKeyLabelling() const
{
    return labelPianoKeys.value();
}

Parameters::CurrentKey Parameters::currentKey() const
{
    return {key.index(), minor.value()};
}

void Parameters::setLastVersion(const QString &version)
{
    lastversion.setValue(version);
}

void Parameters::setIgnoreUpdateVersion(const QString &version)
{
    ignoreUpdateVersion.setValue(version);
}

QMap<QString, QString> Parameters::exportOptions() const
{
    QMap<QString, QString> dictionary;
    for (const Page &page : dialogPages()) {
        for (const Parameter *p : page.parameters)
            dictionary.insert(p->name, p->valueText());
    }
    return dictionary;
}

namespace {

using Entry = std::pair<Parameter *, QString>;

void collectEntries(const Parameters &parameters, const QVariantMap &dictionary,
                    std::vector<Entry> &entries, std::vector<Parameters::RefusedEntry> &refused)
{
    for (auto it = dictionary.cbegin(); it != dictionary.cend(); ++it) {
        const int type = it.value().typeId();
        if (type == QMetaType::QVariantMap) {
            collectEntries(parameters, it.value().toMap(), entries, refused);
            continue;
        }
        Parameter *p = parameters.findForKey(it.key());
        if (!p)
            continue;
        if (type == QMetaType::QString)
            entries.emplace_back(p, it.value().toString());
        else
            refused.push_back({it.key(), it.value().toString(),
                               QStringLiteral("it is read only from a <string> entry")});
    }
}

} // namespace

QString Parameters::RefusedEntry::text() const
{
    return QStringLiteral("\"%1\" refused the value %2: %3")
        .arg(key, quotedForMessage(value), reason);
}

std::vector<Parameters::RefusedEntry> Parameters::importOptions(const QVariantMap &dictionary)
{
    std::vector<Entry> entries;
    std::vector<RefusedEntry> refused;
    collectEntries(*this, dictionary, entries, refused);
    std::vector<Entry> again;
    for (const auto &[p, text] : entries) {
        if (!p->setFromText(text))
            again.emplace_back(p, text);
    }
    // A lowest note above the old highest one is refused until the new highest is in.
    for (const auto &[p, text] : again) {
        if (!p->setFromText(text))
            refused.push_back({p->name, text, QStringLiteral("it takes ") + p->allowedValues()});
    }
    return refused;
}

std::vector<Preset> &Parameters::presets()
{
    if (!presets_.empty())
        return presets_;
    const auto range = [this](const char *name, const char *lowest, const char *highest) {
        return Preset{QString::fromLatin1(name),
                      {&lowestNote, &highestNote},
                      {QString::fromLatin1(lowest), QString::fromLatin1(highest)},
                      nullptr};
    };
    const auto length = [this](const char *name, const char *minutes) {
        return Preset{QString::fromLatin1(name),
                      {&maxAudioFileLength},
                      {QString::fromLatin1(minutes)},
                      nullptr};
    };
    presets_ = {
        range("Violin 4 octaves", "55.0", "103.0"),
        range("Violin 3 octaves", "55.0", "91.0"),
        range("Viola 4 octaves", "48.0", "96.0"),
        range("Viola 3 octaves", "48.0", "84.0"),
        range("Cello 4 octaves", "36.0", "84.0"),
        range("Cello 3 octaves", "36.0", "72.0"),
        length("1 Minute loop", "1.0"),
        length("74 Minute loop", "74.0"),
    };
    return presets_;
}

bool Parameters::presetSelected(const QString &title)
{
    for (const Preset &preset : presets()) {
        if (preset.name != title)
            continue;
        for (std::size_t i = 0; i < preset.params.size(); ++i)
            preset.params[i]->setFromText(preset.values.at(qsizetype(i)));
        return true;
    }
    return false;
}

bool Parameters::matches(const Preset &preset)
{
    for (std::size_t i = 0; i < preset.params.size(); ++i) {
        const Parameter *p = preset.params[i];
        const QString &wanted = preset.values.at(qsizetype(i));
        if (const auto *d = dynamic_cast<const DoubleParameter *>(p)) {
            if (DoubleParameter::parse(wanted) != d->value())
                return false;
        } else if (p->valueText() != wanted) {
            return false;
        }
    }
    return true;
}

} // namespace quorval
