#pragma once

#include "options/OptionStore.h"
#include "streams/Quorval.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <functional>
#include <utility>

namespace quorval::bench {

// Runs the benchmarks of a program that drives the streams: options at their defaults whatever
// the user has chosen, main-thread work delivered by app's event loop, the work queues stopped at
// the end. atEnd runs after the benchmarks and before the queues stop, to drop what still uses
// them. Returns the program's exit status.
inline int runWithStreams(QCoreApplication &app, int &argc, char **argv,
                          const std::function<void()> &atEnd = {})
{
    QTemporaryDir store;
    OptionStore::usePrivateStore(store.path());
    Quorval::installMainPoster([&app](std::function<void()> fn) {
        QMetaObject::invokeMethod(&app, std::move(fn), Qt::QueuedConnection);
    });
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (atEnd)
        atEnd();
    Quorval::shutdown();
    return 0;
}

} // namespace quorval::bench
