#include "cli/CommandLine.h"
#include "cli/Tool.h"
#include "options/Messages.h"
#include "options/OptionStore.h"
#include "streams/Quorval.h"
#include "streams/WorkingFiles.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QTemporaryDir>

#include <csignal>
#include <cstdio>
#include <pthread.h>
#include <thread>

namespace {

// Ctrl-C, SIGTERM, SIGHUP and SIGQUIT end the run without leaving its working files behind:
// they are blocked before any other thread exists and taken by a thread of their own, which
// removes the files in ordinary code and then ends the process by the same signal. An abort
// unlinks the working copies from its handler (the rest is left to removeStale()); a broken
// pipe becomes a write error, and the run ends as after any other.
void takeFatalSignals()
{
    sigset_t fatal;
    sigemptyset(&fatal);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        sigaddset(&fatal, signal);
    pthread_sigmask(SIG_BLOCK, &fatal, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    struct sigaction onAbort
    {
    };
    onAbort.sa_handler = [](int) { quorval::WorkingFiles::removeTrackedNow(); };
    onAbort.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGABRT, &onAbort, nullptr);
    std::thread([fatal] {
        int signal = 0;
        if (sigwait(&fatal, &signal) != 0)
            return;
        quorval::WorkingFiles::removeTracked();
        std::signal(signal, SIG_DFL);
        sigset_t only;
        sigemptyset(&only);
        sigaddset(&only, signal);
        pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
        std::raise(signal);
    }).detach();
}

} // namespace

// quorval-cli: the window's analysis for scripts and batches.
int main(int argc, char **argv)
{
    takeFatalSignals();
    // Working files of runs that were killed outright.
    (void)quorval::WorkingFiles::removeStale();
    QCoreApplication app(argc, argv);
    QString error;
    const auto line = quorval::CommandLine::parse(
        app.arguments().mid(1), static_cast<int>(std::thread::hardware_concurrency()), error);
    if (!line) {
        std::fprintf(stderr, "quorval-cli: %s\n%s", error.toLocal8Bit().constData(),
                     quorval::CommandLine::usage());
        return quorval::Tool::kBadUsage;
    }

    // Unless asked, the user's own option store is neither read nor written: this run gets an
    // empty one of its own, so every option starts at its default.
    QTemporaryDir privateStore(
        QString::fromStdString(quorval::WorkingFiles::optionsFolderTemplate()));
    if (!line->useSettings) {
        if (!privateStore.isValid()) {
            std::fprintf(stderr, "quorval-cli: can't make a temporary folder\n");
            return quorval::Tool::kFailed;
        }
        quorval::WorkingFiles::track(privateStore.path().toStdString());
        quorval::OptionStore::usePrivateStore(privateStore.path());
    }

    quorval::Quorval::installMainPoster([&app](std::function<void()> fn) {
        QMetaObject::invokeMethod(&app, std::move(fn), Qt::QueuedConnection);
    });
    // Messages from below (the system's texts) go to stderr.
    quorval::setMessageHandler([](const QString &, const QString &text) {
        std::fprintf(stderr, "quorval-cli: %s\n", text.toLocal8Bit().constData());
    });

    int status = quorval::Tool(stdout).run(*line);
    quorval::Quorval::shutdown();
    quorval::WorkingFiles::removeTracked();
    return status;
}
