// quorval-help-pictures SOUND FOLDER: pictures of the window's panes for the help pages, drawn
// by the real window on SOUND (in the key of the options file beside it), offscreen, into
// FOLDER: note-table.png, live-readout.png and overview-strip.png.
#include "app/AppDelegate.h"
#include "app/IntonationPanes.h"
#include "app/LiveReadout.h"
#include "app/MainViewController.h"
#include "app/MainWindow.h"
#include "app/NoteTableView.h"
#include "app/SoundDocument.h"
#include "app/Transport.h"
#include "display/DisplayView.h"
#include "display/OverviewStrip.h"
#include "display/TraceArea.h"
#include "options/OptionStore.h"
#include "options/Parameters.h"
#include "options/PrivateFolders.h"
#include "streams/MusicStream.h"
#include "streams/Quorval.h"
#include "streams/WorkingFiles.h"

#include <QAction>
#include <QApplication>
#include <QDeadlineTimer>
#include <QDockWidget>

#include <cstdio>
#include <functional>

namespace {

// Runs the event loop until done holds or a minute passes (under the sanitizers the analysis
// of a long sound takes a while).
bool waitFor(const std::function<bool()> &done)
{
    const QDeadlineTimer deadline(60000);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

bool save(QWidget &widget, const QString &path)
{
    if (widget.grab().save(path))
        return true;
    std::fprintf(stderr, "quorval-help-pictures: can't write %s\n", qPrintable(path));
    return false;
}

// A pane floated at a size of its own, so its picture does not depend on the window's layout.
void floatAt(QDockWidget &dock, QAction &show, QSize size)
{
    if (!dock.isVisible())
        show.trigger();
    dock.setFloating(true);
    dock.resize(size);
}

bool drawPictures(quorval::AppDelegate &delegate, const QString &folder)
{
    using namespace quorval;
    MainViewController &content = *delegate.mainViewController;
    IntonationPanes &panes = *delegate.panes;
    delegate.window->resize(700, 520);
    const std::shared_ptr<MusicStream> music = delegate.document->music();
    if (!music ||
        !waitFor([&] { return music->waitUntilCalculated(std::chrono::milliseconds(1)); }))
        return false;

    // Zoomed in on the opening notes: the strip shows the whole sound, the view framed.
    DisplayView &view = *content.displayView;
    view.hZoom(3.0);
    music->timeView->setLeftTime(0.5, view.extent(), true);
    OverviewStrip &strip = *content.traceArea->overviewStrip;
    if (!waitFor([&] { return strip.isVisible(); }))
        return false;
    strip.refreshNow();
    (void)view.prepareNow(view.size());
    if (!save(*content.traceArea, folder + "/overview-strip.png"))
        return false;

    // The needle inside the sharp third note, where it reads about its mean.
    floatAt(*panes.liveReadoutDock, *panes.liveReadoutAction(), {480, 300});
    content.transport->playhead().moveNeedle(1.57);
    if (!waitFor([&] { return !panes.liveReadout->isBlank(); }) ||
        !save(*panes.liveReadout, folder + "/live-readout.png"))
        return false;

    // The whole sound's notes.
    floatAt(*panes.noteTableDock, *panes.noteTableAction(), {620, 420});
    if (!waitFor([&] {
            return !panes.noteTable->isComputing() && !panes.noteTable->report().notes.empty();
        }))
        return false;
    return save(*panes.noteTable, folder + "/note-table.png");
}

// The offscreen platform says for every window that it cannot pass size hints on, which a
// picture does not need: that line is left out of the build's output, every other one kept.
QtMessageHandler passOn = nullptr;

void quietAboutSizeHints(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (type == QtWarningMsg && text.contains(QLatin1String("propagateSizeHints")))
        return;
    passOn(type, context, text);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fputs("usage: quorval-help-pictures SOUND FOLDER\n", stderr);
        return 2;
    }
    // A build step: no network, no display, and nothing of the user's (options, working files
    // a crash left) seen or touched.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QUORVAL_UPDATE_URL", "http://127.0.0.1:1/");
    passOn = qInstallMessageHandler(quietAboutSizeHints);
    const quorval::PrivateFolders folders;
    if (!folders.isValid())
        return 1;
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Quorval"));
    QApplication::setApplicationName(QStringLiteral("Quorval"));
    quorval::OptionStore::usePrivateStore(folders.user());
    quorval::Quorval::installMainPoster([&app](std::function<void()> fn) {
        QMetaObject::invokeMethod(&app, std::move(fn), Qt::QueuedConnection);
    });

    bool drawn = false;
    {
        quorval::AppDelegate delegate(quorval::Parameters::shared());
        delegate.initialOpenFilePath = QString::fromLocal8Bit(argv[1]);
        drawn = delegate.applicationDidFinishLaunching() &&
                drawPictures(delegate, QString::fromLocal8Bit(argv[2]));
        delegate.terminateWithoutAsking();
    }
    quorval::Quorval::shutdown();
    quorval::WorkingFiles::removeTracked();
    if (!drawn)
        std::fputs("quorval-help-pictures: the panes were not drawn\n", stderr);
    return drawn ? 0 : 1;
}
