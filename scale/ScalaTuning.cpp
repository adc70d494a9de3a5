#include "scale/ScalaTuning.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <fstream>

namespace quorval {

namespace {

// The lines of a text one at a time, with their numbers, comments left out.
class Lines
{
public:
    explicit Lines(std::string_view text) : text_(text) {}

    // The next line that is no comment, without its line end; nothing at the end of the text.
    std::optional<std::string_view> next()
    {
        while (position_ < text_.size()) {
            const std::size_t end = std::min(text_.find('\n', position_), text_.size());
            std::string_view line = text_.substr(position_, end - position_);
            position_ = end + 1;
            ++number_;
            if (!line.empty() && line.back() == '\r')
                line.remove_suffix(1);
            if (!line.empty() && line.front() == '!')
                continue;
            return line;
        }
        return std::nullopt;
    }
    int number() const { return number_; }

private:
    std::string_view text_;
    std::size_t position_ = 0;
    int number_ = 0;
};

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\v' || c == '\f';
}

// The first word of line: leading blanks skipped, up to the next blank.
std::string_view firstWord(std::string_view line)
{
    std::size_t start = 0;
    while (start < line.size() && isSpace(line[start]))
        ++start;
    std::size_t end = start;
    while (end < line.size() && !isSpace(line[end]))
        ++end;
    return line.substr(start, end - start);
}

std::string centsText(double cents)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", cents);
    return text;
}

std::string lineError(int number, const std::string &what)
{
    return "line " + std::to_string(number) + ": " + what;
}

// Shown in messages: at most 40 bytes of a word.
std::string quoted(std::string_view word)
{
    // Appended piece by piece: "x" + std::string&& trips a false -Wrestrict in GCC 12 at -O3.
    std::string text = "\"";
    text.append(word.substr(0, 40));
    text.append(word.size() > 40 ? "...\"" : "\"");
    return text;
}

// A whole number word, all of it digits with an optional "-".
std::optional<long long> wholeNumber(std::string_view word)
{
    long long value = 0;
    const char *end = word.data() + word.size();
    const auto [stop, fault] = std::from_chars(word.data(), end, value);
    if (fault != std::errc() || stop != end)
        return std::nullopt;
    return value;
}

// Cents of a pitch word: "701.955", "-3.5", "1200." or a ratio "3/2", "2".
std::optional<double> pitchCents(std::string_view word, std::string &why)
{
    if (word.find('.') != std::string_view::npos) {
        if (!word.empty() && word.front() == '+')
            word.remove_prefix(1);
        double cents = 0.0;
        const char *end = word.data() + word.size();
        const auto [stop, fault] =
            std::from_chars(word.data(), end, cents, std::chars_format::fixed);
        if (fault != std::errc() || stop != end || !std::isfinite(cents)) {
            why = quoted(word) + " is no number of cents";
            return std::nullopt;
        }
        // A hundred octaves either way is beyond any instrument.
        if (std::abs(cents) > 120000.0) {
            why = quoted(word) + " cents lies more than a hundred octaves away";
            return std::nullopt;
        }
        return cents;
    }
    const std::size_t slash = word.find('/');
    const std::string_view numeratorWord = word.substr(0, slash);
    const std::string_view denominatorWord =
        slash == std::string_view::npos ? std::string_view("1") : word.substr(slash + 1);
    const auto digitsOnly = [](std::string_view w) {
        return !w.empty() && w.find_first_not_of("0123456789") == std::string_view::npos;
    };
    if (!digitsOnly(numeratorWord) || !digitsOnly(denominatorWord)) {
        why = (!word.empty() && word.front() == '-')
                  ? quoted(word) + " is a negative ratio: a ratio must lie above 0"
                  : quoted(word) + " is no ratio (a/b or a whole number) and no cents (with a .)";
        return std::nullopt;
    }
    // Parsed as doubles: the archive's ratios run to twenty digits and more.
    const double numerator = std::strtod(std::string(numeratorWord).c_str(), nullptr);
    const double denominator = std::strtod(std::string(denominatorWord).c_str(), nullptr);
    if (numerator == 0.0 || denominator == 0.0) {
        why = quoted(word) + " has a zero in it: a ratio must lie above 0";
        return std::nullopt;
    }
    if (!std::isfinite(numerator) || !std::isfinite(denominator)) {
        why = quoted(word) + " is too large a ratio";
        return std::nullopt;
    }
    const double cents = 1200.0 * std::log2(numerator / denominator);
    if (!std::isfinite(cents) || std::abs(cents) > 120000.0) {
        why = quoted(word) + " lies more than a hundred octaves away";
        return std::nullopt;
    }
    return cents;
}

std::optional<std::string> fileText(const std::string &path, std::string &error)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        error = path + ": can't read the file";
        return std::nullopt;
    }
    // A Scala file of the largest allowed size is far below this.
    constexpr std::streamsize kMaxBytes = 4 << 20;
    std::string text(static_cast<std::size_t>(kMaxBytes) + 1, '\0');
    file.read(text.data(), kMaxBytes + 1);
    if (file.bad()) {
        error = path + ": can't read the file";
        return std::nullopt;
    }
    if (file.gcount() > kMaxBytes) {
        error = path + ": the file is larger than 4 MB, too large for a tuning";
        return std::nullopt;
    }
    text.resize(static_cast<std::size_t>(file.gcount()));
    return text;
}

} // namespace

double ScalaTuning::degreeCents(long long d) const
{
    const long long n = size();
    const long long periods = d >= 0 ? d / n : -((-d + n - 1) / n);
    const long long within = d - periods * n;
    return double(periods) * periodCents() +
           (within == 0 ? 0.0 : cents[static_cast<std::size_t>(within - 1)]);
}

std::optional<ScalaTuning> ScalaTuning::readScale(std::string_view text, std::string &error)
{
    Lines lines(text);
    ScalaTuning tuning;
    const std::optional<std::string_view> description = lines.next();
    if (!description) {
        error = "the file holds no description line and no count of pitches";
        return std::nullopt;
    }
    tuning.description = std::string(*description);
    const std::optional<std::string_view> countLine = lines.next();
    if (!countLine) {
        error = "the file ends after its description, before the count of pitches";
        return std::nullopt;
    }
    const int countLineNumber = lines.number();
    const std::string_view countWord = firstWord(*countLine);
    const std::optional<long long> count = wholeNumber(countWord);
    if (!count || *count < 0) {
        error = lineError(countLineNumber,
                          quoted(countWord) + " is no count of pitches (a whole number)");
        return std::nullopt;
    }
    if (*count == 0) {
        error = lineError(countLineNumber,
                          "the count is 0, but a scale needs at least its period (such as 2/1)");
        return std::nullopt;
    }
    if (*count > kMaxPitches) {
        error = lineError(countLineNumber, "a count of " + std::to_string(*count) +
                                               " pitches is more than the " +
                                               std::to_string(kMaxPitches) + " a scale may hold");
        return std::nullopt;
    }
    while (tuning.size() < *count) {
        const std::optional<std::string_view> line = lines.next();
        if (!line) {
            error = "the file ends after " + std::to_string(tuning.size()) + " of the " +
                    std::to_string(*count) + " pitches line " + std::to_string(countLineNumber) +
                    " counts";
            return std::nullopt;
        }
        const std::string_view word = firstWord(*line);
        std::string why;
        const std::optional<double> cents = word.empty() ? std::nullopt : pitchCents(word, why);
        if (!cents) {
            error = lineError(lines.number(),
                              word.empty() ? "a pitch is missing: the line is blank" : why);
            return std::nullopt;
        }
        tuning.cents.push_back(*cents);
    }
    const int periodLine = lines.number();
    if (!(tuning.periodCents() > 0.0)) {
        error =
            lineError(periodLine, "the last pitch is the period the scale repeats at, and " +
                                      centsText(tuning.periodCents()) + " cents is not above 1/1");
        return std::nullopt;
    }
    // The grid lays the scale out over some fifteen octaves; keep that within reason.
    if (double(tuning.size()) * 18000.0 / tuning.periodCents() > 200000.0) {
        error = lineError(periodLine, "a period of " + centsText(tuning.periodCents()) +
                                          " cents is too small for " +
                                          std::to_string(tuning.size()) + " pitches");
        return std::nullopt;
    }
    while (const std::optional<std::string_view> line = lines.next()) {
        if (!firstWord(*line).empty()) {
            error = lineError(lines.number(), "more pitches than the " + std::to_string(*count) +
                                                  " line " + std::to_string(countLineNumber) +
                                                  " counts");
            return std::nullopt;
        }
    }
    return tuning;
}

std::optional<ScalaTuning::Mapping> ScalaTuning::readMapping(std::string_view text,
                                                             std::string &error)
{
    Lines lines(text);
    Mapping mapping;
    struct Field
    {
        const char *name;
        int *value;
        long long lowest;
        long long highest;
    };
    const Field fields[] = {
        {"the map size", &mapping.mapSize, 0, kKeys},
        {"the first key", &mapping.firstKey, 0, kKeys - 1},
        {"the last key", &mapping.lastKey, 0, kKeys - 1},
        {"the middle key", &mapping.middleKey, 0, kKeys - 1},
        {"the reference key", &mapping.referenceKey, 0, kKeys - 1},
    };
    const auto nextWord = [&](const char *what) -> std::optional<std::string_view> {
        const std::optional<std::string_view> line = lines.next();
        if (!line) {
            error = std::string("the file ends before ") + what;
            return std::nullopt;
        }
        return firstWord(*line);
    };
    for (const Field &field : fields) {
        const auto word = nextWord(field.name);
        if (!word)
            return std::nullopt;
        const std::optional<long long> value = wholeNumber(*word);
        if (!value || *value < field.lowest || *value > field.highest) {
            error = lineError(lines.number(), quoted(*word) + " is not " + field.name +
                                                  " (a whole number from " +
                                                  std::to_string(field.lowest) + " to " +
                                                  std::to_string(field.highest) + ")");
            return std::nullopt;
        }
        *field.value = static_cast<int>(*value);
    }
    if (mapping.lastKey < mapping.firstKey) {
        error = lineError(lines.number() - 2, "the last key lies below the first");
        return std::nullopt;
    }
    const auto frequencyWord = nextWord("the reference frequency");
    if (!frequencyWord)
        return std::nullopt;
    double frequency = 0.0;
    const char *frequencyEnd = frequencyWord->data() + frequencyWord->size();
    const auto [stop, fault] = std::from_chars(frequencyWord->data(), frequencyEnd, frequency);
    if (fault != std::errc() || stop != frequencyEnd || !(frequency >= 1.0 && frequency <= 1e5)) {
        error = lineError(lines.number(),
                          quoted(*frequencyWord) + " is no reference frequency (Hz, 1 to 100000)");
        return std::nullopt;
    }
    mapping.referenceFreqHz = frequency;
    const auto octaveWord = nextWord("the formal octave's degree");
    if (!octaveWord)
        return std::nullopt;
    const std::optional<long long> octave = wholeNumber(*octaveWord);
    if (!octave || *octave < 0 || *octave > kMaxPitches * 16 ||
        (*octave == 0 && mapping.mapSize > 0)) {
        error =
            lineError(lines.number(), quoted(*octaveWord) + " is not the formal octave's degree (" +
                                          (mapping.mapSize > 0 ? "1" : "0") + " or more)");
        return std::nullopt;
    }
    mapping.octaveDegree = static_cast<int>(*octave);
    while (const std::optional<std::string_view> line = lines.next()) {
        const std::string_view word = firstWord(*line);
        if (word.empty())
            continue;
        if (static_cast<int>(mapping.degrees.size()) == mapping.mapSize) {
            error = lineError(lines.number(), "more entries than the map size of " +
                                                  std::to_string(mapping.mapSize));
            return std::nullopt;
        }
        if (word == "x" || word == "X") {
            mapping.degrees.push_back(-1);
            continue;
        }
        const std::optional<long long> degree = wholeNumber(word);
        if (!degree || *degree < 0 || *degree > kMaxPitches * 16) {
            error =
                lineError(lines.number(),
                          quoted(word) + " is no scale degree (a whole number from 0) and no x");
            return std::nullopt;
        }
        mapping.degrees.push_back(static_cast<int>(*degree));
    }
    mapping.degrees.resize(static_cast<std::size_t>(mapping.mapSize), -1);
    if (!mapping.degreeOfKey(mapping.referenceKey)) {
        error = "the reference key " + std::to_string(mapping.referenceKey) +
                " is left out of the map, so nothing fixes the pitch";
        return std::nullopt;
    }
    bool anyTuned = false;
    for (int key = mapping.firstKey; key <= mapping.lastKey && !anyTuned; ++key)
        anyTuned = mapping.degreeOfKey(key).has_value();
    if (!anyTuned) {
        error = "no key from the first to the last is mapped, so there is nothing to tune";
        return std::nullopt;
    }
    return mapping;
}

std::optional<long long> ScalaTuning::Mapping::degreeOfKey(int key) const
{
    const long long offset = key - middleKey;
    if (mapSize == 0)
        return offset;
    const long long cycles = offset >= 0 ? offset / mapSize : -((-offset + mapSize - 1) / mapSize);
    const int entry = degrees[static_cast<std::size_t>(offset - cycles * mapSize)];
    if (entry < 0)
        return std::nullopt;
    return cycles * octaveDegree + entry;
}

std::optional<ScalaTuning> ScalaTuning::readFiles(const std::string &scalePath,
                                                  const std::string &mappingPath,
                                                  std::string &error)
{
    const std::optional<std::string> scaleText = fileText(scalePath, error);
    if (!scaleText)
        return std::nullopt;
    std::optional<ScalaTuning> tuning = readScale(*scaleText, error);
    if (!tuning) {
        error = scalePath + ": " + error;
        return std::nullopt;
    }
    if (mappingPath.empty())
        return tuning;
    const std::optional<std::string> mappingText = fileText(mappingPath, error);
    if (!mappingText)
        return std::nullopt;
    tuning->mapping = readMapping(*mappingText, error);
    if (!tuning->mapping) {
        error = mappingPath + ": " + error;
        return std::nullopt;
    }
    return tuning;
}

} // namespace quorval
