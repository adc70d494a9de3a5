#include "app/MainWindow.h"

#include "analysis/Check.h"
#include "app/AskViewController.h"
#include "app/IntonationPanes.h"
#include "app/MainViewController.h"
#include "app/RecentFiles.h"
#include "app/ReportCommands.h"
#include "app/SoundDocument.h"
#include "app/Transport.h"
#include "display/TraceArea.h"
#include "display/TracePointer.h"
#include "help/HelpViewer.h"
#include "help/UpdateChecker.h"
#include "options/Parameters.h"
#include "options/ViewType.h"
#include "options/dialog/OptionsMenu.h"
#include "streams/MusicStream.h"
#include "streams/Quorval.h"
#include "streams/TimeText.h"
#include "streams/WavStream.h"

#include <QAction>
#include <QCloseEvent>
#include <QLabel>
#include <QMenuBar>
#include <QProgressBar>
#include <QSettings>
#include <QStatusBar>
#include <QTimer>

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

QString timeText(double seconds)
{
    return QString::fromStdString(minutesAndSeconds(seconds));
}

// f or v, then key.
QKeySequence afterPrefix(Qt::Key prefix, Qt::Key key)
{
    return QKeySequence(prefix, key);
}

} // namespace

MainWindow::MainWindow() : statusTimer(new QTimer(this))
{
    setAttribute(Qt::WA_DeleteOnClose, false);
    resize(1100, 640);
    statusTimer->setInterval(250);
    connect(statusTimer, &QTimer::timeout, this, &MainWindow::refreshStatus);
}

void MainWindow::setParts(const Parts &given)
{
    QUORVAL_CHECK(!parts);
    parts.emplace(given);
    buildMenus();
    buildStatusBar();
    partTies = {
        connect(parts->content.traceArea->pointer, &TracePointer::hovered, this,
                [this](const HoverInfo &info) { hoverLabel->setText(info.text); }),
        connect(&parts->content, &MainViewController::selectionChanged, this,
                [this](double start, double end) {
                    refreshMenus();
                    showSelection(start, end);
                }),
        connect(&parts->content, &MainViewController::soundChanged, this,
                &MainWindow::refreshMenus),
        connect(&parts->document, &SoundDocument::stateChanged, this, &MainWindow::refreshMenus),
        connect(&parts->document, &SoundDocument::soundShown, this,
                [this] {
                    refreshMenus();
                    refreshStatus();
                }),
        connect(&parts->document, &SoundDocument::scaleTaken, this,
                [this](const QString &what) { statusBar()->showMessage(what, kScaleTakenMs); }),
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
    const auto add = [this](QMenu *menu, const QString &title, const auto &command,
                            const QList<QKeySequence> &keys = {}) {
        QAction *action = menu->addAction(title);
        action->setShortcuts(keys);
        action->setShortcutContext(Qt::WindowShortcut);
        connect(action, &QAction::triggered, this, command);
        return action;
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

void MainWindow::buildStatusBar()
{
    soundLabel = new QLabel(this);
    hoverLabel = new QLabel(this);
    // The sound's file name as it stands, never as markup.
    soundLabel->setTextFormat(Qt::PlainText);
    analysisBar = new QProgressBar(this);
    analysisBar->setRange(0, 0);
    analysisBar->setMaximumWidth(120);
    analysisBar->setToolTip(tr("Analysing the sound"));
    analysisBar->hide();
    selectionLabel = new QLabel(this);
    statusBar()->addWidget(hoverLabel, 1);
    statusBar()->addPermanentWidget(selectionLabel);
    statusBar()->addPermanentWidget(analysisBar);
    statusBar()->addPermanentWidget(soundLabel);
}

void MainWindow::showWhereLeft()
{
    const QByteArray geometry = windowSettings().value(QLatin1String(kGeometryKey)).toByteArray();
    if (geometry.isEmpty() || !restoreGeometry(geometry))
        resize(1100, 640);
    (void)restoreState(windowSettings().value(QLatin1String(kPanesKey)).toByteArray());
    show();
    statusTimer->start();
}

void MainWindow::rememberGeometry()
{
    QSettings settings = windowSettings();
    settings.setValue(QLatin1String(kGeometryKey), saveGeometry());
    settings.setValue(QLatin1String(kPanesKey), saveState());
}

void MainWindow::showSelection(double start, double end)
{
    if (start < 0.0 || end <= start) {
        selectionLabel->clear();
        return;
    }
    selectionLabel->setText(
        tr("Selection %1 to %2 (%3 s)")
            .arg(timeText(start), timeText(end), QString::asprintf("%.2f", end - start)));
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

void MainWindow::refreshStatus()
{
    const std::shared_ptr<MusicStream> music = parts ? parts->document.music() : nullptr;
    if (!music) {
        soundLabel->clear();
        analysisBar->hide();
        return;
    }
    const MusicStream::TimeRange range = music->timeRange();
    soundLabel->setText(parts->document.soundName() + QStringLiteral("  ") +
                        timeText(range.duration));
    analysisBar->setVisible(music->isCalculating() || music->wavStream->copying);
}

} // namespace quorval
