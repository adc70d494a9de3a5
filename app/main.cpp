#include "app/AppDelegate.h"
#include "app/HandoverServer.h"
#include "app/IncomingFiles.h"
#include "app/MainViewController.h"
#include "app/MainWindow.h"
#include "app/SoundDocument.h"
#include "app/StatusLine.h"
#include "display/DisplayView.h"
#include "options/Parameters.h"
#include "streams/MusicStream.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"
#include "streams/WorkingFiles.h"

#include <QApplication>
#include <QMainWindow>
#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <unistd.h>

namespace {

const char *const kUsage =
    "usage: quorval [FILE...]\n"
    "\n"
    "Shows how well in tune a recording is: opens FILE (WAV, MP3, FLAC, Ogg, AIFF) or, without\n"
    "one, a new recording from the microphone. A file given while Quorval already runs opens in\n"
    "the running window.\n"
    "\n"
    "  --picture PATH  once the first trace is drawn, write a picture of the window to PATH\n"
    "                  (PNG) and close the window\n"
    "  --help          show this text\n"
    "  --version       show the version\n";

struct Arguments
{
    QStringList files;
    std::optional<QString> picture;
};

// Writes the window once the sound's analysis is complete and drawn, then closes it.
void closeAfterPicture(quorval::AppDelegate &delegate, const QString &path)
{
    auto *timer = new QTimer(&delegate);
    timer->setInterval(100);
    QObject::connect(timer, &QTimer::timeout, &delegate, [&delegate, path, timer] {
        const std::shared_ptr<quorval::MusicStream> music = delegate.document->music();
        // Every segment's pitch computed: the picture shows the whole analysis.
        if (!music || !music->waitUntilCalculated(std::chrono::milliseconds(1)))
            return;
        timer->stop();
        delegate.window->status->refresh();
        quorval::DisplayView *view = delegate.mainViewController->displayView;
        (void)view->prepareNow(view->size());
        if (!delegate.window->grab().save(path))
            std::fprintf(stderr, "quorval: can't write %s\n", path.toLocal8Bit().constData());
        delegate.window->close();
    });
    timer->start();
}

// The write end of the pipe the ending signals are handed over through.
int signalPipeInput = -1;

void onEndingSignal(int)
{
    const int savedErrno = errno;
    const char byte = 1;
    // Non-blocking: a full pipe already holds a wake-up.
    (void)!::write(signalPipeInput, &byte, 1);
    errno = savedErrno;
}

// The session ends the program with SIGTERM or SIGHUP (logout, a closed terminal), a terminal
// with SIGINT: each closes the window as Quit does, without asking, since nobody is there to
// answer. The handler only writes to a pipe; the event loop reads it and does the work.
void closeOnEndingSignals(quorval::AppDelegate &delegate)
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        std::perror("quorval: pipe2");
        return;
    }
    signalPipeInput = ends[1];
    auto *notifier = new QSocketNotifier(ends[0], QSocketNotifier::Read, &delegate);
    QObject::connect(notifier, &QSocketNotifier::activated, &delegate, [&delegate, ends] {
        char bytes[16];
        while (::read(ends[0], bytes, sizeof bytes) > 0) {
        }
        delegate.terminateWithoutAsking();
    });
    struct sigaction action
    {
    };
    action.sa_handler = onEndingSignal;
    ::sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGTERM, SIGHUP, SIGINT})
        (void)::sigaction(signal, &action, nullptr);
}

} // namespace

int main(int argc, char **argv)
{
    Arguments arguments;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (std::strcmp(argv[i], "--version") == 0) {
            std::printf("quorval %s\n", QUORVAL_VERSION);
            return 0;
        }
        if (std::strcmp(argv[i], "--picture") == 0 && i + 1 < argc) {
            arguments.picture = QString::fromLocal8Bit(argv[++i]);
            continue;
        }
        if (argv[i][0] == '-' && argv[i][1] != '\0') {
            std::fprintf(stderr, "quorval: unknown option %s\n%s", argv[i], kUsage);
            return 2;
        }
        arguments.files.append(QString::fromLocal8Bit(argv[i]));
    }

    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Quorval"));
    QApplication::setApplicationName(QStringLiteral("Quorval"));
    QApplication::setApplicationVersion(QStringLiteral(QUORVAL_VERSION));
    QApplication::setQuitOnLastWindowClosed(false);

    // A file opened from the file manager while Quorval runs goes to the running window.
    if (!arguments.files.isEmpty() && !arguments.picture &&
        quorval::HandoverServer::sendToRunningWindow(arguments.files))
        return 0;

    quorval::Quorval::installMainPoster([&app](std::function<void()> fn) {
        QMetaObject::invokeMethod(&app, std::move(fn), Qt::QueuedConnection);
    });
    // Scratch left by runs that were killed.
    (void)quorval::WorkingFiles::removeStale();
    int status = 0;
    {
        quorval::AppDelegate delegate(quorval::Parameters::shared());
        closeOnEndingSignals(delegate);
        if (!arguments.picture) {
            // Files from later launches, opened as files dropped on the window are.
            auto *server = new quorval::HandoverServer(&delegate);
            QObject::connect(server, &quorval::HandoverServer::received,
                             delegate.document->incoming, &quorval::IncomingFiles::add);
            (void)server->listen(quorval::HandoverServer::windowSocketPath());
        }
        if (!arguments.files.isEmpty())
            delegate.initialOpenFilePath = arguments.files.front();
        QObject::connect(&delegate, &quorval::AppDelegate::terminate, &app, &QApplication::quit,
                         Qt::QueuedConnection);
        QTimer::singleShot(0, &delegate, [&delegate, &arguments] {
            if (!delegate.applicationDidFinishLaunching()) {
                QApplication::exit(1);
                return;
            }
            if (arguments.picture)
                closeAfterPicture(delegate, *arguments.picture);
        });
        status = QApplication::exec();
    }
    quorval::Quorval::shutdown();
    quorval::WorkingFiles::removeTracked();
    return status;
}
