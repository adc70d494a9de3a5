#include "app/MainWindow.h"

#include "analysis/Check.h"
#include "app/AskViewController.h"
#include "app/IntonationPanes.h"
#include "app/MainViewController.h"
#include "app/RecentFiles.h"
#include "app/ReportCommands.h"
#include "app/SoundDocument.h"
#include "app/StatusLine.h"
#include "app/Transport.h"
#include "app/WindowAction.h"
#include "display/DisplayView.h"
#include "display/TraceArea.h"
#include "display/TracePointer.h"
#include "help/HelpViewer.h"
#include "help/UpdateChecker.h"
#include "options/Parameters.h"
#include "options/ViewType.h"
#include "options/dialog/OptionsMenu.h"
#include "streams/MusicStream.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <QAction>
#include <QCloseEvent>
#include <QMenuBar>
#include <QSettings>
#include <QStatusBar>

#include <utility>

namespace quorval {

namespace {

// The second key after v for a view: its letter.
Qt::Key viewKey(const ViewTypeNames &names)
{
    return Qt::Key(Qt::Key_A + (names.letter - 'A'));
}

QSettings windowSettings()
{
    return QSettings(QStringLiteral("Quorval"), QStringLiteral("Quorval"));
}

// f or v, then key.
QKeySequence afterPrefix(Qt::Key prefix, Qt::Key key)
{
    return QKeySequence(prefix, key);
}

} // namespace

MainWindow::MainWindow() : status(new StatusLine(statusBar()))
{
    setAttribute(Qt::WA_DeleteOnClose, false);
    resize(1100, 640);
}

void MainWindow::setParts(const Parts &given)
{
    QUORVAL_CHECK(!parts);
    parts.emplace(given);
    buildMenus();
    partTies = {
        connect(parts->content.traceArea->pointer, &TracePointer::hovered, status,
                [this](const HoverInfo &info) { status->showHover(info.text); }),
        connect(&parts->content, &MainViewController::selectionChanged, this,
                [this](double start, double end) {
                    refreshMenus();
                    status->showSelection(start, end);
                }),
        connect(&parts->content, &MainViewController::soundChanged, this,
                &MainWindow::refreshMenus),
        connect(&parts->document, &SoundDocument::stateChanged, this, &MainWindow::refreshMenus),
        connect(&parts->document, &SoundDocument::soundShown, this,
                [this](const std::shared_ptr<MusicStream> &music) {
                    refreshMenus();
                    status->setMusic(music);
                }),
        connect(&parts->document, &SoundDocument::scaleTaken, status, &StatusLine::showScaleTaken),
        connect(&parts->reports, &ReportCommands::changed, this, &MainWindow::refreshMenus),
        connect(&parts->optionsMenu, &OptionsMenu::optionsChanged, this,
                &MainWindow::refreshMenus)};
}

MainWindow::~MainWindow()
{
    for (const QMetaObject::Connection &tie : partTies)
        disconnect(tie);
}

void MainWindow::buildMenus()
{
    QMenuBar *bar = menuBar();
    // Every item is one action of the whole window, its keys working whatever has the focus.
    const auto add = [this](QMenu *menu, const QString &title, const std::function<void()> &command,
                            const QList<QKeySequence> &keys = {}) {
        return addWindowAction(menu, title, keys, this, command);
    };
    SoundDocument &document = parts->document;
    ReportCommands &reports = parts->reports;

    fileMenu = bar->addMenu(tr("&File"));
    add(fileMenu, tr("&New Recording"), [&document] { document.newRecording(); },
        {QKeySequence::New, afterPrefix(Qt::Key_F, Qt::Key_N)});
    add(fileMenu, tr("&Open..."), [&document] { document.open(); },
        {QKeySequence::Open, afterPrefix(Qt::Key_F, Qt::Key_O)});
    fileMenu->addMenu(parts->recentFiles.menu());
    fileMenu->addSeparator();
    fileSaveMenuItem = add(fileMenu, tr("&Save"), [&document] { document.save(); },
                           {QKeySequence::Save, afterPrefix(Qt::Key_F, Qt::Key_S)});
    fileSaveAsMenuItem =
        add(fileMenu, tr("Save &As..."), [&document] { document.saveAs(); },
            {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S), afterPrefix(Qt::Key_F, Qt::Key_A)});
    exportSelectionMenuItem =
        add(fileMenu, tr("&Export Selection..."), [&document] { document.exportSelection(); });
    fileMenu->addSeparator();
    propertiesMenuItem = add(fileMenu, tr("File &Properties"), [this] { showProperties(); });
    checkForUpdatesMenuItem = add(fileMenu, tr("Check for Updates..."),
                                  [this] { parts->updateChecker.checkOnRequest(); });
    fileMenu->addSeparator();
    add(fileMenu, tr("&Quit"), [this] { close(); }, {QKeySequence::Quit});

    QMenu *options = parts->optionsMenu.optionsMenu();
    bar->addMenu(options);
    options->addSeparator();
    guessKeyMenuItem = add(options, tr("Guess Key..."), [&reports] { reports.guessKey(); });

    viewMenu = bar->addMenu(tr("&View"));
    for (std::size_t i = 0; i < kViewTypes.size(); ++i) {
        QAction *item =
            add(viewMenu, choiceOf(kViewTypes[i].type), [this, i] { setViewType(int(i)); },
                {afterPrefix(Qt::Key_V, viewKey(kViewTypes[i]))});
        item->setCheckable(true);
        viewMenuItems[i] = item;
    }
    viewMenu->addSeparator();
    showDeviationsMenuItem = add(viewMenu, tr("&Deviations"), [&reports] { reports.deviations(); },
                                 {QKeySequence(Qt::CTRL | Qt::Key_D)});
    viewMenu->addSeparator();
    // The panes' own show/hide actions, with keys after v like the views.
    noteTableMenuItem = parts->panes.noteTableAction();
    liveReadoutMenuItem = parts->panes.liveReadoutAction();
    for (auto [item, key] :
         {std::pair{noteTableMenuItem, Qt::Key_N}, std::pair{liveReadoutMenuItem, Qt::Key_L}}) {
        item->setShortcut(afterPrefix(Qt::Key_V, key));
        item->setShortcutContext(Qt::WindowShortcut);
        viewMenu->addAction(item);
    }

    // Selecting all is what a player does before looping or exporting the whole take; the
    // sound itself is never edited (nothing recorded may be lost).
    editMenu = bar->addMenu(tr("&Edit"));
    selectAllSoundMenuItem = add(editMenu, tr("Select All Sound"),
                                 [this] {
                                     if (parts->content.selectAll())
                                         refreshMenus();
                                 },
                                 {QKeySequence::SelectAll});

    developerMenu = bar->addMenu(tr("&Developer"));
    developerModeMenuItem =
        add(developerMenu, tr("Developer Mode"), [&reports] { reports.toggleDeveloperMode(); });
    developerModeMenuItem->setCheckable(true);
    add(developerMenu, tr("Status"), [&reports] { reports.status(); });
    add(developerMenu, tr("Save Pitches..."), [&reports] { reports.savePitches(); });
    add(developerMenu, tr("Crash..."), [&reports] { reports.crash(); });

    HelpViewer &help = parts->helpViewer;
    helpMenu = bar->addMenu(tr("&Help"));
    add(helpMenu, tr("Getting Started"),
        [&help] { help.showTopic(QStringLiteral("GettingStarted")); });
    add(helpMenu, tr("Quorval Help"), [&help] { help.showTopic(QStringLiteral("Manual")); },
        {QKeySequence::HelpContents});
    helpMenu->addSeparator();
    aboutMenuItem = add(helpMenu, tr("About Quorval"), [this] { showAbout(); });
    helpDeveloperModeMenuItem =
        add(helpMenu, tr("Developer Mode"), [&reports] { reports.toggleDeveloperMode(); });
    helpDeveloperModeMenuItem->setCheckable(true);

    for (QMenu *menu :
         {fileMenu, viewMenu, editMenu, developerMenu, parts->optionsMenu.optionsMenu()})
        connect(menu, &QMenu::aboutToShow, this, &MainWindow::refreshMenus);
}

void MainWindow::showWhereLeft()
{
    const QByteArray geometry = windowSettings().value(QLatin1String(kGeometryKey)).toByteArray();
    if (geometry.isEmpty() || !restoreGeometry(geometry))
        resize(1100, 640);
    (void)restoreState(windowSettings().value(QLatin1String(kPanesKey)).toByteArray());
    show();
    status->start();
}

void MainWindow::rememberGeometry()
{
    QSettings settings = windowSettings();
    settings.setValue(QLatin1String(kGeometryKey), saveGeometry());
    settings.setValue(QLatin1String(kPanesKey), saveState());
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    if (mayClose && !mayClose()) {
        event->ignore();
        return;
    }
    rememberGeometry();
    event->accept();
    emit closed();
}

void MainWindow::setViewType(int index)
{
    QUORVAL_CHECK(index >= 0 && index < int(kViewTypes.size()));
    (void)parts->parameters.setViewType(choiceOf(kViewTypes[static_cast<std::size_t>(index)].type));
    parts->content.optionsChanged();
    refreshMenus();
}

void MainWindow::showProperties()
{
    const std::shared_ptr<WavStream> wav = parts->document.wavStream();
    if (!wav)
        return;
    const QString path = parts->document.filePath();
    AskViewController::message(this, QStringLiteral("File Properties"),
                               (path.isEmpty() ? tr("Not saved yet") : tr("File %1").arg(path)) +
                                   QLatin1Char('\n') + QString::fromStdString(wav->description()));
}

void MainWindow::showAbout()
{
    AskViewController::message(
        this, tr("About Quorval"),
        tr("Quorval %1\nShows how well in tune you play or sing: the pitch of a sound against "
           "the notes of a key, mode and temperament.")
            .arg(QStringLiteral(QUORVAL_VERSION)),
        tr("Free software under the GNU General Public License, version 3 or later."));
}

void MainWindow::refreshMenus()
{
    if (!parts)
        return;
    const std::shared_ptr<WavStream> wav = parts->document.wavStream();
    const bool hasSound = wav != nullptr;
    fileSaveMenuItem->setEnabled(parts->document.canSave());
    fileSaveAsMenuItem->setEnabled(hasSound);
    exportSelectionMenuItem->setEnabled(parts->document.selectedFrames().has_value());
    propertiesMenuItem->setEnabled(hasSound);
    showDeviationsMenuItem->setEnabled(hasSound && !parts->reports.deviationsRunning());
    guessKeyMenuItem->setEnabled(hasSound && !parts->reports.guessingKey());
    const PlaybackState &playback = *parts->content.transport->playback();
    selectAllSoundMenuItem->setEnabled(hasSound && !playback.running());

    parts->optionsMenu.refreshPresets();
    const bool developer = Quorval::developerMode();
    developerModeMenuItem->setChecked(developer);
    helpDeveloperModeMenuItem->setChecked(developer);
    developerMenu->menuAction()->setVisible(developer);

    const QChar letter = parts->parameters.viewTypeLetter();
    for (std::size_t i = 0; i < viewMenuItems.size(); ++i)
        viewMenuItems[i]->setChecked(!letter.isNull() && kViewTypes[i].letter == letter);
}

} // namespace quorval
