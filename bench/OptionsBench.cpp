// Reading options as the drawing and analysis code does, many times per redraw: a number that is
// stored, a number at its default, and a choice looked up in its list.

#include "options/OptionStore.h"
#include "options/Parameters.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

namespace {

using namespace quorval;

void readStoredNumber(benchmark::State &state)
{
    Parameters &parameters = Parameters::shared();
    (void)parameters.aFrequency.setValue(442.0);
    for (auto _ : state)
        benchmark::DoNotOptimize(parameters.aFrequency.value());
}
BENCHMARK(readStoredNumber);

void readDefaultNumber(benchmark::State &state)
{
    Parameters &parameters = Parameters::shared();
    parameters.zoomIncrement.resetToDefault();
    for (auto _ : state)
        benchmark::DoNotOptimize(parameters.zoomIncrement.value());
}
BENCHMARK(readDefaultNumber);

void readChoice(benchmark::State &state)
{
    Parameters &parameters = Parameters::shared();
    (void)parameters.setViewType(QStringLiteral("Pitch"));
    for (auto _ : state)
        benchmark::DoNotOptimize(parameters.currentViewType());
}
BENCHMARK(readChoice);

} // namespace

// The options store lives in a temporary directory, so a benchmark run never touches the
// user's own.
int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir store;
    OptionStore::usePrivateStore(store.path());
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
