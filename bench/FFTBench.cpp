// One magnitude spectrum of 2n real samples, n = 2^logN for logN 8 .. 12: time per transform.

#include "analysis/FFTOC.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <random>
#include <vector>

namespace {

void fftCompute(benchmark::State &state)
{
    const int logN = static_cast<int>(state.range(0));
    quorval::FFTOC fft;
    (void)fft.setupWithLogN(logN);
    std::vector<double> x(std::size_t{2} << logN);
    std::mt19937 generator(1);
    std::uniform_real_distribution<double> noise(-1.0, 1.0);
    for (double &value : x)
        value = noise(generator);
    for (auto _ : state) {
        fft.compute(x.data());
        benchmark::DoNotOptimize(fft.getResult());
        benchmark::ClobberMemory();
    }
    state.counters["realSamples"] = static_cast<double>(x.size());
}

} // namespace

BENCHMARK(fftCompute)->DenseRange(8, 12);

BENCHMARK_MAIN();
