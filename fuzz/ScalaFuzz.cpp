// Fuzz target: arbitrary bytes are read as a Scala scale file and, after a line "%%", as a
// keyboard mapping for it. What is accepted must make a grid whose lines lie where the
// deviation finds them; crashes, sanitizer reports, endless loops and the checks below fail.

#include "scale/ScalaTuning.h"
#include "scale/Scale.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    const std::size_t split = bytes.find("\n%%\n");
    const std::string_view scaleText = bytes.substr(0, split);
    std::string error;
    std::optional<quorval::ScalaTuning> tuning = quorval::ScalaTuning::readScale(scaleText, error);
    if (!tuning) {
        if (error.empty())
            std::abort(); // every refusal says why
        return 0;
    }
    if (tuning->size() < 1 || tuning->size() > quorval::ScalaTuning::kMaxPitches ||
        !(tuning->periodCents() > 0.0))
        std::abort();
    for (const double cents : tuning->cents)
        if (!std::isfinite(cents))
            std::abort();
    if (split != std::string_view::npos) {
        tuning->mapping = quorval::ScalaTuning::readMapping(bytes.substr(split + 4), error);
        if (!tuning->mapping)
            return 0;
    }
    quorval::Scale::Settings settings;
    settings.keyPitchClass = static_cast<int>(size % 12);
    settings.completenessLevel = static_cast<int>(size % 3);
    settings.tuning = std::make_shared<const quorval::ScalaTuning>(std::move(*tuning));
    const quorval::Scale scale(settings);
    for (const quorval::GridLine &line : scale.gridLines(40.0, 90.0)) {
        if (!std::isfinite(line.pitch) || std::abs(scale.deviation(line.pitch)) > 1e-6 ||
            line.name.isEmpty())
            std::abort();
    }
    for (double p = 0.0; p < 128.0; p += 7.3) {
        const double d = scale.deviation(p);
        if (!std::isfinite(d) || !scale.isShown(scale.nearestLine(p)))
            std::abort();
    }
    return 0;
}
