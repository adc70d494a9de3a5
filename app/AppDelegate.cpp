#include "app/AppDelegate.h"

#include "analysis/Check.h"
#include "analysis/RegularFile.h"
#include "analysis/WavFileOC.h"
#include "app/MainView.h"
#include "app/MainViewController.h"
#include "audio/Recorder.h"
#include "audio/SoundDevices.h"
#include "display/DisplayView.h"
#include "display/TraceArea.h"
#include "help/ContextHelp.h"
#include "help/HelpViewer.h"
#include "help/UpdateChecker.h"
#include "options/DeveloperMode.h"
#include "options/OptionsFile.h"
#include "options/Parameters.h"
#include "options/dialog/OptionsMenu.h"
#include "streams/MusicStream.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"
#include "streams/WorkingFiles.h"

#include <QAction>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QLocale>
#include <QMainWindow>
#include <QMediaDevices>
#include <QMenuBar>
#include <QPointer>
#include <QProgressBar>
#include <QProgressDialog>
#include <QSaveFile>
#include <QSettings>
#include <QStandardPaths>
#include <QStatusBar>
#include <QTemporaryFile>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <unistd.h>

namespace quorval {

namespace {

QSettings windowSettings()
{
    return QSettings(QStringLiteral("Quorval"), QStringLiteral("Quorval"));
}

// The user's configuration folder and the temporary folder must take files.
bool fileSystemUsable()
{
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    if (config.isEmpty() || !QDir().mkpath(config))
        return false;
    QTemporaryFile probe(QDir::tempPath() + QStringLiteral("/quorval-XXXXXX"));
    return probe.open();
}

QString timeText(double seconds)
{
    const int minutes = static_cast<int>(seconds / 60.0);
    return QString::asprintf("%d:%04.1f", minutes, seconds - 60.0 * minutes);
}

} // namespace

AppDelegate::AppDelegate(Parameters &params, Panels filePanels)
    : panels(std::move(filePanels)), window(new QMainWindow), mainView(new MainView(window)),
      parameters(params), statusTimer(new QTimer(this)), mediaDevices(new QMediaDevices(this))
{
    window->setAttribute(Qt::WA_DeleteOnClose, false);
    window->setCentralWidget(mainView);
    window->resize(1100, 640);
    window->installEventFilter(this);
    mainViewController = new MainViewController(mainView, this);

    if (!panels.chooseFileToOpen) {
        panels.chooseFileToOpen = [this]() -> std::optional<QString> {
            const QString path = QFileDialog::getOpenFileName(
                window, tr("Open"), QString(),
                tr("Sound files (*.wav *.mp3 *.flac *.ogg *.opus *.aif *.aiff);;All files (*)"));
            if (path.isEmpty())
                return std::nullopt;
            return path;
        };
    }
    if (!panels.chooseFileToSave) {
        panels.chooseFileToSave = [this](const QString &suggested) -> std::optional<QString> {
            QFileDialog dialog(window, tr("Save As"), suggested, tr("WAV sound (*.wav)"));
            dialog.setAcceptMode(QFileDialog::AcceptSave);
            dialog.setDefaultSuffix(QStringLiteral("wav"));
            if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
                return std::nullopt;
            return dialog.selectedFiles().front();
        };
    }

    helpViewer = new HelpViewer;
    window->setProperty(ContextHelp::kTopicProperty, QStringLiteral("Manual"));
    contextHelp =
        new ContextHelp([this](const QString &topic) { helpViewer->showTopic(topic); }, this);
    OptionsHost host;
    host.openHelp = [this](const QString &topic) { return helpViewer->openHelp(topic); };
    optionsMenu = new OptionsMenu(parameters, std::move(host), window);
    AskViewController::installAsMessageHandler(window);
    AskViewController::setHelpOpener(
        [this](const QString &topic) { return helpViewer->openHelp(topic); });

    UpdateHost updates;
    updates.tell = [this](const QString &title, const QString &text) {
        AskViewController::message(window, title, text);
    };
    updates.ask = [this](const QString &title, const QString &text) {
        return AskViewController::ask(window, title, text, {.no = true}) ==
               AskViewController::Answer::yes;
    };
    // Through the window's close, so an unsaved sound is asked about first.
    updates.quit = [this] { quitMenuItemSelected(); };
    updateChecker = new UpdateChecker(std::move(updates), this);

    // Warnings may come from the analysis threads; the prompt lives on the main thread.
    QPointer<MainViewController> prompt(mainViewController);
    previousWarningHandler = setWarningHandler([prompt](const QString &text) {
        Quorval::postToMain([prompt, text] {
            if (prompt)
                prompt->showPrompt(text);
        });
    });
    buildMenus();

    soundLabel = new QLabel(window);
    hoverLabel = new QLabel(window);
    // The sound's file name as it stands, never as markup.
    soundLabel->setTextFormat(Qt::PlainText);
    analysisBar = new QProgressBar(window);
    analysisBar->setRange(0, 0);
    analysisBar->setMaximumWidth(120);
    analysisBar->setToolTip(tr("Analysing the sound"));
    analysisBar->hide();
    window->statusBar()->addWidget(hoverLabel, 1);
    window->statusBar()->addPermanentWidget(analysisBar);
    window->statusBar()->addPermanentWidget(soundLabel);

    connect(mainViewController->displayView, &DisplayView::hovered, this,
            [this](const HoverInfo &info) { hoverLabel->setText(info.text); });
    connect(mainViewController->displayView, &DisplayView::selectionChanged, this,
            &AppDelegate::refreshMenus);
    connect(mainViewController, &MainViewController::soundChanged, this, [this] {
        mainViewController->refreshControls();
        refreshMenus();
    });
    connect(optionsMenu, &OptionsMenu::optionsChanged, this, [this] {
        mainViewController->displayView->setViewType(parameters.currentViewType());
        mainViewController->displayView->dataChanged();
        mainViewController->refreshControls();
        refreshMenus();
    });
    connect(mainView, &MainView::filesDropped, this,
            [this](const QStringList &paths) { (void)openFile(paths.front()); });
    statusTimer->setInterval(250);
    connect(statusTimer, &QTimer::timeout, this, &AppDelegate::refreshStatus);
}

AppDelegate::~AppDelegate()
{
    cancelDeviations();
    (void)setWarningHandler(std::move(previousWarningHandler));
    AskViewController::setHelpOpener({});
    delete contextHelp;
    delete helpViewer;
    delete window;
    Quorval::setMusicStream(nullptr);
}

void AppDelegate::buildMenus()
{
    QMenuBar *bar = window->menuBar();
    auto add = [this](QMenu *menu, const QString &title, void (AppDelegate::*slot)(),
                      const QKeySequence &shortcut = {}) {
        QAction *action = menu->addAction(title);
        action->setShortcut(shortcut);
        connect(action, &QAction::triggered, this, slot);
        return action;
    };

    fileMenu = bar->addMenu(tr("&File"));
    fileNewMenuItem = add(fileMenu, tr("&New Recording"), &AppDelegate::newFileMenuItemSelected,
                          QKeySequence::New);
    fileOpenMenuItem =
        add(fileMenu, tr("&Open..."), &AppDelegate::openFileMenuItemSelected, QKeySequence::Open);
    recentFilesMenu = fileMenu->addMenu(tr("Recent Files"));
    fileMenu->addSeparator();
    fileSaveMenuItem =
        add(fileMenu, tr("&Save"), &AppDelegate::saveFileMenuItemSelected, QKeySequence::Save);
    fileSaveAsMenuItem = add(fileMenu, tr("Save &As..."), &AppDelegate::saveAsFileMenuItemSelected,
                             QKeySequence::SaveAs);
    exportSelectionMenuItem =
        add(fileMenu, tr("&Export Selection..."), &AppDelegate::exportSelectionMenuItemSelected);
    fileMenu->addSeparator();
    propertiesMenuItem =
        add(fileMenu, tr("File &Properties"), &AppDelegate::propertiesMenuItemSelected);
    checkForUpdatesMenuItem =
        add(fileMenu, tr("Check for Updates..."), &AppDelegate::checkForUpdatesMenuItemSelected);
    fileMenu->addSeparator();
    add(fileMenu, tr("&Quit"), &AppDelegate::quitMenuItemSelected, QKeySequence::Quit);

    bar->addMenu(optionsMenu->optionsMenu());
    presetsMenu = optionsMenu->presetsMenu();

    viewMenu = bar->addMenu(tr("&View"));
    for (int i = 0; i < 6; ++i) {
        QAction *item = viewMenu->addAction(choiceOf(kViewTypes[static_cast<std::size_t>(i)].type));
        item->setCheckable(true);
        connect(item, &QAction::triggered, this, [this, i] { setViewType(i); });
        viewMenuItems[static_cast<std::size_t>(i)] = item;
    }
    viewMenu->addSeparator();
    showDeviationsMenuItem =
        add(viewMenu, tr("&Deviations"), &AppDelegate::deviationsViewMenuItemSelected,
            QKeySequence(Qt::CTRL | Qt::Key_D));

    // Cutting and pasting sound would edit a recording in place, which this program never does
    // (nothing recorded may be lost): those items stay in the layout, disabled. Selecting all
    // is what a player does before looping or exporting the whole take.
    editMenu = bar->addMenu(tr("&Edit"));
    cutSoundMenuItem = editMenu->addAction(tr("Cut Sound"));
    copySoundMenuItem = editMenu->addAction(tr("Copy Sound"));
    pasteSoundMenuItem = editMenu->addAction(tr("Paste Sound"));
    selectAllSoundMenuItem =
        add(editMenu, tr("Select All Sound"), &AppDelegate::selectAllSoundEditMenuItemSelected,
            QKeySequence::SelectAll);

    developerMenu = bar->addMenu(tr("&Developer"));
    developerModeMenuItem =
        add(developerMenu, tr("Developer Mode"), &AppDelegate::developerModeMenuItemSelected);
    developerModeMenuItem->setCheckable(true);
    add(developerMenu, tr("Status"), &AppDelegate::statusMenuItemSelected);
    add(developerMenu, tr("Save Pitches..."), &AppDelegate::savePitchesMenuItemSelected);
    add(developerMenu, tr("Crash..."), &AppDelegate::ThrowExceptionMenuItemSelected);

    helpMenu = bar->addMenu(tr("&Help"));
    add(helpMenu, tr("Getting Started"), &AppDelegate::gettingStartedHelpMenuItemSelected);
    add(helpMenu, tr("Quorval Help"), &AppDelegate::helpHelpMenuItemSelected,
        QKeySequence::HelpContents);
    helpMenu->addSeparator();
    helpDeveloperModeMenuItem =
        add(helpMenu, tr("Developer Mode"), &AppDelegate::developerModeMenuItemSelected);
    helpDeveloperModeMenuItem->setCheckable(true);

    for (QMenu *menu : {fileMenu, viewMenu, editMenu, developerMenu, optionsMenu->optionsMenu()})
        connect(menu, &QMenu::aboutToShow, this, &AppDelegate::refreshMenus);
}

bool AppDelegate::applicationDidFinishLaunching()
{
    if (!fileSystemUsable()) {
        AskViewController::message(window, QString(),
                                   QStringLiteral("Can't access file system: internal error"));
        return false;
    }
    (void)OptionsFile::importEarlierPreferences(parameters);
    Quorval::installOptionFollowUps();
    // The options dialog lists the inputs the server offers, as they come and go.
    parameters.inputDevice.offerDevices(SoundDevices::inputNames());
    connect(mediaDevices, &QMediaDevices::audioInputsChanged, this,
            [this] { parameters.inputDevice.offerDevices(SoundDevices::inputNames()); });
    refreshRecentFiles();
    refreshMenus();

    const QByteArray geometry = windowSettings().value(QLatin1String(kGeometryKey)).toByteArray();
    if (geometry.isEmpty() || !window->restoreGeometry(geometry))
        window->resize(1100, 640);
    window->show();
    mainView->setFocus();
    statusTimer->start();
    launched = true;

    const std::optional<QString> initial = std::exchange(initialOpenFilePath, std::nullopt);
    // A recording that a crash kept from being saved comes before anything else.
    if (!offerRecoveries() && (!initial || !openFile(*initial)))
        newFileMenuItemSelected();
    (void)updateChecker->checkAtStartup();
    return true;
}

bool AppDelegate::offerRecoveries()
{
    const std::vector<std::string> orphans = WorkingFiles::orphanedRecordings();
    const int offers = std::min<int>(kRecoveryOffers, static_cast<int>(orphans.size()));
    for (int i = 0; i < offers; ++i) {
        const std::string &found = orphans[static_cast<std::size_t>(i)];
        const QString path = QFile::decodeName(found.c_str());
        const QFileInfo info(path);
        // Recordings are made in the recorder's format behind a 44-byte header.
        const double seconds =
            static_cast<double>(std::max<qint64>(0, info.size() - 44)) /
            (Recorder::sampleRate * Recorder::nChannels * (Recorder::bitDepth / 8.0));
        QString text =
            tr("Quorval ended before a recording was saved: %1 of sound, recorded until %2.\n\n"
               "Recover it to save it now, discard it for good, or decide later (it is kept "
               "and offered again at the next start).")
                .arg(timeText(seconds),
                     QLocale().toString(info.lastModified(), QLocale::ShortFormat));
        if (orphans.size() > 1)
            text += tr("\n\nThis is %1 of %2 recordings kept.").arg(i + 1).arg(orphans.size());
        const AskViewController::Answer answer = AskViewController::ask(
            window, tr("Recover Recording"), text, {.no = true, .cancel = true}, QString(),
            {tr("Recover"), tr("Discard"), tr("Later")});
        if (answer == AskViewController::Answer::no) {
            if (::unlink(found.c_str()) != 0)
                AskViewController::message(window, QString(),
                                           tr("Can't discard the recording %1: %2")
                                               .arg(path, QString::fromStdString(reasonOf(errno))));
            continue;
        }
        if (answer == AskViewController::Answer::cancel)
            continue;
        std::shared_ptr<WavStream> wav = WavStream::createFromFile(found);
        if (!wav)
            continue; // its reason was shown; the file stays for a later start
        // Saved only where the user says: never back into the temporary folder.
        wav->saveURL.reset();
        wav->fileTitle = "Recovered Recording";
        wav->modified = true;
        recoveredFrom = path;
        recoveredStream = wav;
        showMusic(MusicStream::create(std::move(wav)));
        return true;
    }
    return false;
}

void AppDelegate::showMusic(std::shared_ptr<MusicStream> music)
{
    if (!music)
        return;
    forgetDiscardedSound();
    mainViewController->setMusicStream(std::move(music));
    refreshMenus();
    refreshStatus();
}

void AppDelegate::forgetDiscardedSound()
{
    const std::shared_ptr<WavStream> discarded = std::exchange(discardedStream, {}).lock();
    if (!discarded || discarded != mainViewController->wavStream())
        return;
    // Unmodified, its working file goes with it; a recovered take's crash copy goes now.
    discarded->modified = false;
    if (recoveredFrom && recoveredStream.lock() == discarded) {
        QFile::remove(*std::exchange(recoveredFrom, std::nullopt));
        recoveredStream.reset();
    }
}

void AppDelegate::newFileMenuItemSelected()
{
    if (!shouldDiscardModifiedSound())
        return;
    // WavStream says "Can't create .wav file -- internal error" when it cannot.
    std::shared_ptr<WavStream> wav = WavStream::createForRecording(1, 2, 44100.0);
    if (wav)
        showMusic(MusicStream::create(std::move(wav)));
}

void AppDelegate::openFileMenuItemSelected()
{
    if (!shouldDiscardModifiedSound())
        return;
    if (const std::optional<QString> path = panels.chooseFileToOpen())
        (void)openFile(*path);
}

bool AppDelegate::openFile(const QString &path)
{
    if (!launched) {
        initialOpenFilePath = path;
        return true;
    }
    // WavStream says "Can't read sound file" when it cannot.
    std::shared_ptr<WavStream> wav =
        WavStream::createFromFile(QFile::encodeName(path).toStdString());
    if (!wav)
        return false;
    showMusic(MusicStream::create(std::move(wav)));
    rememberRecentFile(QFileInfo(path).absoluteFilePath());
    return true;
}

bool AppDelegate::saveTo(const std::optional<QString> &path)
{
    const std::shared_ptr<WavStream> wav = mainViewController->wavStream();
    if (!wav)
        return false;
    mainViewController->stopTransport();
    // WavStream says "Can't save sound file" when it fails, and the old file stays whole.
    const bool saved = path ? wav->saveAs(QFile::encodeName(*path).toStdString()) : wav->save();
    if (saved && wav->saveURL)
        rememberRecentFile(QFile::decodeName(wav->saveURL->c_str()));
    // A recovered recording is safe once saved: its crash copy can go.
    if (saved && recoveredFrom && recoveredStream.lock() == wav) {
        QFile::remove(*std::exchange(recoveredFrom, std::nullopt));
        recoveredStream.reset();
    }
    mainViewController->refreshControls();
    refreshMenus();
    return saved;
}

void AppDelegate::saveFileMenuItemSelected()
{
    const std::shared_ptr<WavStream> wav = mainViewController->wavStream();
    if (!wav)
        return;
    if (!wav->saveURL)
        saveAsFileMenuItemSelected();
    else
        (void)saveTo(std::nullopt);
}

void AppDelegate::saveAsFileMenuItemSelected()
{
    const std::shared_ptr<WavStream> wav = mainViewController->wavStream();
    if (!wav)
        return;
    QString suggested = wav->saveURL ? QFile::decodeName(wav->saveURL->c_str())
                                     : QString::fromStdString(wav->fileTitle);
    if (!suggested.endsWith(QLatin1String(".wav"), Qt::CaseInsensitive))
        suggested = QFileInfo(suggested).completeBaseName() + QStringLiteral(".wav");
    if (const std::optional<QString> path = panels.chooseFileToSave(suggested))
        (void)saveTo(path);
}

std::optional<std::pair<std::int64_t, std::int64_t>> AppDelegate::selectedFrames() const
{
    const std::shared_ptr<MusicStream> music = mainViewController->musicStream();
    if (!music || !music->timeView->hasSelection())
        return std::nullopt;
    const std::shared_ptr<WavStream> wav = music->wavStream;
    const auto [lowest, highest] = Quorval::dataQueue().sync(
        [&wav] { return std::make_pair(wav->minimumIndex_D(), wav->maximumIndex_D()); });
    const auto frameAt = [&](double t) {
        return std::clamp(static_cast<std::int64_t>(std::llround(t / wav->xScale)), lowest,
                          highest);
    };
    const std::int64_t first = frameAt(music->timeView->selectionStart);
    const std::int64_t end = frameAt(music->timeView->selectionEnd);
    if (end <= first)
        return std::nullopt;
    return std::make_pair(first, end);
}

void AppDelegate::exportSelectionMenuItemSelected()
{
    const std::shared_ptr<WavStream> wav = mainViewController->wavStream();
    const auto frames = selectedFrames();
    if (!wav || !frames)
        return;
    const std::optional<QString> path = panels.chooseFileToSave(
        QFileInfo(soundName()).completeBaseName() + QStringLiteral(" selection.wav"));
    if (!path)
        return;
    wav->waitForCopy();
    const std::string target = QFile::encodeName(*path).toStdString();
    const std::string partial = target + ".partial";
    // A file replaced keeps who may read it; a new one gets what the umask allows.
    const bool replacing = QFileInfo(*path).isFile();
    const bool written = Quorval::dataQueue().sync([&] {
        const std::int64_t bytes = (frames->second - frames->first) * wav->bytesPerFrame;
        if (bytes > std::numeric_limits<std::int32_t>::max())
            return false;
        WavFileOC out;
        if (!out.setupWithSampleRate(wav->sampleRate(), wav->nChannels(), wav->bytesPerSample(),
                                     static_cast<int>(bytes), partial,
                                     replacing ? WavFileOC::Access::ownerOnly
                                               : WavFileOC::Access::asUmaskAllows))
            return false;
        // The working file is a ring: a stretch may run over its end to its start.
        int from = wav->byteLocOf(frames->first);
        int to = 0;
        while (to < bytes) {
            const int copied =
                out.copyDataFromWavFile(wav->wavFile_D(), from, to, static_cast<int>(bytes) - to);
            if (copied == 0) {
                if (from == 0)
                    return false;
                from = 0;
                continue;
            }
            from += copied;
            to += copied;
        }
        return out.finalizeWithByteSize(static_cast<int>(bytes)) &&
               (!replacing || out.copyPermissionsFrom(target));
    });
    if (!written || std::rename(partial.c_str(), target.c_str()) != 0) {
        std::remove(partial.c_str());
        AskViewController::message(window, QString(), QStringLiteral("Can't save sound file"));
    }
}

void AppDelegate::propertiesMenuItemSelected()
{
    if (const std::shared_ptr<WavStream> wav = mainViewController->wavStream())
        AskViewController::message(window, QStringLiteral("File Properties"),
                                   QString::fromStdString(wav->description()));
}

void AppDelegate::quitMenuItemSelected()
{
    window->close();
}

QString AppDelegate::soundName() const
{
    const std::shared_ptr<WavStream> wav = mainViewController->wavStream();
    return wav ? QString::fromStdString(wav->fileTitle) : QString();
}

bool AppDelegate::shouldDiscardModifiedSound()
{
    const std::shared_ptr<WavStream> wav = mainViewController->wavStream();
    discardedStream.reset();
    if (!parameters.checkForModifiedFiles.value() || !wav || !wav->modified)
        return true;
    const AskViewController::Answer answer = AskViewController::ask(
        window, QStringLiteral("Save modified file?"),
        soundName() + QStringLiteral(" has been modified.\nDo you want to save it?"),
        {.no = true, .cancel = true});
    switch (answer) {
    case AskViewController::Answer::yes:
        saveFileMenuItemSelected();
        // A save that failed or was cancelled keeps the sound.
        return !wav->modified;
    case AskViewController::Answer::no:
        // Removed only once another sound takes its place (or the window closes): the command
        // may still fail and leave it shown.
        discardedStream = wav;
        return true;
    case AskViewController::Answer::cancel:
        return false;
    }
    return false;
}

bool AppDelegate::applicationShouldTerminate()
{
    if (!mainViewController->windowShouldClose())
        return false;
    forgetDiscardedSound();
    return true;
}

void AppDelegate::terminateWithoutAsking()
{
    mainViewController->stopTransport();
    cancelDeviations();
    windowSettings().setValue(QLatin1String(kGeometryKey), window->saveGeometry());
    // Every event loop ends, a dialog's included: nobody is there to answer it.
    QCoreApplication::exit(0);
}

bool AppDelegate::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == window && event->type() == QEvent::Close) {
        if (!applicationShouldTerminate()) {
            event->ignore();
            return true;
        }
        cancelDeviations();
        windowSettings().setValue(QLatin1String(kGeometryKey), window->saveGeometry());
        emit terminate();
    }
    return QObject::eventFilter(watched, event);
}

void AppDelegate::setViewType(int index)
{
    QUORVAL_CHECK(index >= 0 && index < 6);
    const ViewType type = kViewTypes[static_cast<std::size_t>(index)].type;
    (void)parameters.setViewType(choiceOf(type));
    mainViewController->displayView->setViewType(type);
    mainViewController->refreshControls();
    refreshMenus();
}

void AppDelegate::deviationsViewMenuItemSelected()
{
    const std::shared_ptr<MusicStream> music = mainViewController->musicStream();
    if (!music || deviations.isRunning())
        return;
    // The selection is on the time axis whichever view shows.
    const HView &time = *music->timeView;
    const double t0 = time.hasSelection() ? time.selectionStart : 0.0;
    const double t1 = time.hasSelection() ? time.selectionEnd : 0.0;
    deviationsCanceled = false;
    deviationsProgress =
        new QProgressDialog(QStringLiteral("Computing deviations"), tr("Cancel"), 0, 0, window);
    deviationsProgress->setWindowTitle(tr("Deviations"));
    deviationsProgress->setMinimumDuration(300);
    deviationsProgress->setAttribute(Qt::WA_DeleteOnClose);
    connect(deviationsProgress, &QProgressDialog::canceled, this, &AppDelegate::cancelDeviations);
    deviations.start(music, t0, t1,
                     [this](const Deviations::Results &results) { deviationsDone(results); });
    refreshMenus();
}

void AppDelegate::cancelDeviations()
{
    if (deviations.isRunning()) {
        deviationsCanceled = true;
        deviations.cancel();
    }
    if (deviationsProgress) {
        deviationsProgress->disconnect(this);
        deviationsProgress->close();
        deviationsProgress = nullptr;
    }
    refreshMenus();
}

void AppDelegate::deviationsDone(const Deviations::Results &results)
{
    if (deviationsProgress) {
        deviationsProgress->disconnect(this);
        deviationsProgress->close();
        deviationsProgress = nullptr;
    }
    if (deviationsCanceled)
        return;
    deviationsResults = results;
    refreshMenus();
    AskViewController::message(window, tr("Deviations"),
                               QString::fromStdString(Deviations::report(results)));
}

void AppDelegate::developerModeMenuItemSelected()
{
    Quorval::setDeveloperMode(!Quorval::developerMode());
    refreshMenus();
}

void AppDelegate::statusMenuItemSelected()
{
    const std::shared_ptr<MusicStream> music = mainViewController->musicStream();
    AskViewController::message(window, QStringLiteral("Status"),
                               music ? QString::fromStdString(music->description())
                                     : tr("No sound is open."));
}

void AppDelegate::savePitchesMenuItemSelected()
{
    const std::shared_ptr<MusicStream> music = mainViewController->musicStream();
    if (!music)
        return;
    const std::optional<QString> path =
        panels.chooseFileToSave(QFileInfo(soundName()).completeBaseName() + QStringLiteral(".txt"));
    if (!path)
        return;
    // Segment index, start time in seconds, pitch (note number, -1 none) and goodness.
    QByteArray text;
    for (const MusicStream::SegmentValue &v : music->segmentValues())
        text += QString::asprintf("%f %f %f %f\n", static_cast<double>(v.index), v.timeSeconds,
                                  v.pitch, v.goodness)
                    .toLatin1();
    QSaveFile file(*path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.commit())
        AskViewController::message(window, QString(),
                                   tr("Can't write the pitch file: %1").arg(file.errorString()));
}

void AppDelegate::ThrowExceptionMenuItemSelected()
{
    if (AskViewController::ask(window, tr("Crash"),
                               QStringLiteral("Do you really want to crash this program?"),
                               {.no = true}) == AskViewController::Answer::yes)
        std::abort();
}

void AppDelegate::selectAllSoundEditMenuItemSelected()
{
    if (mainViewController->selectAll())
        refreshMenus();
}

void AppDelegate::gettingStartedHelpMenuItemSelected()
{
    helpViewer->showTopic(QStringLiteral("GettingStarted"));
}

void AppDelegate::helpHelpMenuItemSelected()
{
    helpViewer->showTopic(QStringLiteral("Manual"));
}

void AppDelegate::checkForUpdatesMenuItemSelected()
{
    updateChecker->checkOnRequest();
}

void AppDelegate::refreshMenus()
{
    const std::shared_ptr<WavStream> wav = mainViewController->wavStream();
    const bool hasSound = wav != nullptr;
    fileSaveMenuItem->setEnabled(hasSound && (wav->modified || !wav->saveURL));
    fileSaveAsMenuItem->setEnabled(hasSound);
    exportSelectionMenuItem->setEnabled(selectedFrames().has_value());
    propertiesMenuItem->setEnabled(hasSound);
    showDeviationsMenuItem->setEnabled(hasSound && !deviations.isRunning());
    for (QAction *item : {cutSoundMenuItem, copySoundMenuItem, pasteSoundMenuItem})
        item->setEnabled(false);
    selectAllSoundMenuItem->setEnabled(hasSound && !Quorval::playing && !Quorval::recording);

    optionsMenu->refreshPresets();
    const bool developer = Quorval::developerMode();
    developerModeMenuItem->setChecked(developer);
    helpDeveloperModeMenuItem->setChecked(developer);
    developerMenu->menuAction()->setVisible(developer);

    const QChar letter = parameters.viewTypeLetter();
    for (std::size_t i = 0; i < viewMenuItems.size(); ++i)
        viewMenuItems[i]->setChecked(!letter.isNull() && kViewTypes[i].letter == letter);
}

void AppDelegate::refreshStatus()
{
    const std::shared_ptr<MusicStream> music = mainViewController->musicStream();
    if (!music) {
        soundLabel->clear();
        analysisBar->hide();
        return;
    }
    const MusicStream::TimeRange range = music->timeRange();
    soundLabel->setText(soundName() + QStringLiteral("  ") + timeText(range.duration));
    analysisBar->setVisible(music->isCalculating() || music->wavStream->copying);
}

void AppDelegate::rememberRecentFile(const QString &path)
{
    QSettings settings = windowSettings();
    QStringList recent = settings.value(QLatin1String(kRecentFilesKey)).toStringList();
    recent.removeAll(path);
    recent.prepend(path);
    while (recent.size() > kRecentFiles)
        recent.removeLast();
    settings.setValue(QLatin1String(kRecentFilesKey), recent);
    refreshRecentFiles();
}

void AppDelegate::forgetRecentFile(const QString &path)
{
    QSettings settings = windowSettings();
    QStringList recent = settings.value(QLatin1String(kRecentFilesKey)).toStringList();
    recent.removeAll(path);
    settings.setValue(QLatin1String(kRecentFilesKey), recent);
    refreshRecentFiles();
}

void AppDelegate::refreshRecentFiles()
{
    recentFilesMenu->clear();
    const QStringList recent =
        windowSettings().value(QLatin1String(kRecentFilesKey)).toStringList();
    for (const QString &path : recent) {
        QAction *item = recentFilesMenu->addAction(QFileInfo(path).fileName());
        item->setToolTip(path);
        connect(item, &QAction::triggered, this, [this, path] {
            // A file that can no longer be read (moved, deleted) leaves the list after its
            // message.
            if (shouldDiscardModifiedSound() && !openFile(path))
                forgetRecentFile(path);
        });
    }
    recentFilesMenu->setEnabled(!recent.isEmpty());
}

} // namespace quorval
