#include "cli/CommandLine.h"
#include "cli/Interruption.h"
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

#include <cstdio>
#include <memory>
#include <optional>
#include <thread>

// quorval-cli: the window's analysis for scripts and batches.
int main(int argc, char **argv)
{
    // Blocked before any other thread exists, so that only the signal thread takes them.
    quorval::Interruption::takeSignals();
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
    quorval::setMessageHandler([](const QString &, const QString &text, const QString &detail) {
        const QString line = detail.isEmpty() ? text : text + QStringLiteral(": ") + detail;
        std::fprintf(stderr, "quorval-cli: %s\n", line.toLocal8Bit().constData());
    });

    int status = quorval::Tool(stdout).run(*line);
    quorval::Quorval::shutdown();
    quorval::WorkingFiles::removeTracked();
    return status;
}
