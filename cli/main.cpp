#include "cli/CommandLine.h"
#include "cli/Tool.h"
#include "options/Messages.h"
#include "options/OptionStore.h"
#include "streams/Quorval.h"
#include "streams/WorkingFiles.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QMetaObject>
#include <QTemporaryDir>

#include <csignal>
#include <cstdio>
#include <memory>
#include <optional>
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
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.push_back(QString::fromLocal8Bit(argv[i]));
    QString error;
    const auto line = quorval::CommandLine::parse(
        arguments, static_cast<int>(std::thread::hardware_concurrency()), error);
    if (!line) {
        std::fprintf(stderr, "quorval-cli: %s\n%s", error.toLocal8Bit().constData(),
                     quorval::CommandLine::usage());
        return quorval::Tool::kBadUsage;
    }

    // Pictures are drawn by the window's own views, on Qt's offscreen platform: no window.
    // The platform layer wants the session's private runtime folder and warns without one (a
    // console, cron, a build): this run then has a 0700 folder of its own, gone at exit.
    std::optional<QTemporaryDir> runtimeFolder;
    std::unique_ptr<QCoreApplication> app;
    if (line->command == quorval::CommandLine::Command::render) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        if (qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR")) {
            runtimeFolder.emplace(QDir::tempPath() + "/quorval-runtime-XXXXXX");
            if (runtimeFolder->isValid()) {
                quorval::WorkingFiles::track(runtimeFolder->path().toStdString());
                qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtimeFolder->path()));
            }
        }
        app = std::make_unique<QApplication>(argc, argv);
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
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

    QCoreApplication *application = app.get();
    quorval::Quorval::installMainPoster([application](std::function<void()> fn) {
        QMetaObject::invokeMethod(application, std::move(fn), Qt::QueuedConnection);
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
