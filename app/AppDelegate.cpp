#include "app/AppDelegate.h"

#include "app/AskViewController.h"
#include "app/CrashRecovery.h"
#include "app/IncomingFiles.h"
#include "app/IntonationPanes.h"
#include "app/KeyPrompt.h"
#include "app/MainView.h"
#include "app/MainViewController.h"
#include "app/MainWindow.h"
#include "app/RecentFiles.h"
#include "app/ReportCommands.h"
#include "audio/SoundDevices.h"
#include "audio/SoundServerExit.h"
#include "display/DisplayView.h"
#include "help/ContextHelp.h"
#include "help/HelpViewer.h"
#include "help/UpdateChecker.h"
#include "options/OptionsFile.h"
#include "options/Parameters.h"
#include "options/dialog/OptionsMenu.h"
#include "streams/Quorval.h"

#include <QCoreApplication>
#include <QDir>
#include <QMediaDevices>
#include <QPointer>
#include <QStandardPaths>
#include <QTemporaryFile>

namespace quorval {

namespace {

// The user's configuration folder and the temporary folder must take files.
bool fileSystemUsable()
{
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    if (config.isEmpty() || !QDir().mkpath(config))
        return false;
    QTemporaryFile probe(QDir::tempPath() + QStringLiteral("/quorval-XXXXXX"));
    return probe.open();
}

} // namespace

AppDelegate::AppDelegate(Parameters &params, SoundDocument::Panels panels)
    : window(new MainWindow), mainView(new MainView(window)), parameters(params),
      mediaDevices(new QMediaDevices(this))
{
    // Qt's audio is up from here, whether or not the launch gets as far as the devices.
    SoundServerExit::arm();
    window->setCentralWidget(mainView);

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

    mainViewController = new MainViewController(mainView, *optionsMenu);
    document = new SoundDocument(
        parameters, window, [content = mainViewController] { content->stopTransport(); },
        std::move(panels));
    document->setParent(this);
    recentFiles = new RecentFiles(window);
    crashRecovery = new CrashRecovery(this);
    reports = new ReportCommands(window, {.sound = [this] { return document->music(); },
                                          .chooseFileToSave =
                                              [this](const QString &suggested) {
                                                  return document->panels.chooseFileToSave(
                                                      suggested, tr("Save Pitches"));
                                              },
                                          .parameters = &parameters});

    UpdateHost updates;
    updates.tell = [this](const QString &title, const QString &text) {
        AskViewController::message(window, title, text);
    };
    updates.ask = [this](const QString &title, const QString &text) {
        return AskViewController::ask(window, title, text, {.no = true}) ==
               AskViewController::Answer::yes;
    };
    // Through the window's close, so an unsaved sound is asked about first.
    updates.quit = [this] { window->close(); };
    updateChecker = new UpdateChecker(std::move(updates), this);

    // Warnings may come from the analysis threads; the prompt lives on the main thread.
    QPointer<KeyPrompt> prompt(mainViewController->prompt);
    previousWarningHandler = setWarningHandler([prompt](const QString &text) {
        Quorval::postToMain([prompt, text] {
            if (prompt)
                prompt->show(text);
        });
    });

    panes = new IntonationPanes(*window, *mainViewController);
    window->setParts({.parameters = parameters,
                      .document = *document,
                      .recentFiles = *recentFiles,
                      .reports = *reports,
                      .optionsMenu = *optionsMenu,
                      .helpViewer = *helpViewer,
                      .updateChecker = *updateChecker,
                      .content = *mainViewController,
                      .panes = *panes});
    window->mayClose = [this] {
        if (!document->mayClose())
            return false;
        reports->cancelDeviations();
        return true;
    };
    connect(window, &MainWindow::closed, this, &AppDelegate::terminate);

    connect(document, &SoundDocument::soundShown, mainViewController,
            &MainViewController::setMusicStream);
    connect(document, &SoundDocument::stateChanged, mainViewController,
            &MainViewController::refreshControls);
    connect(document, &SoundDocument::fileUsed, recentFiles, &RecentFiles::remember);
    connect(document, &SoundDocument::fileUnreadable, recentFiles, &RecentFiles::forget);
    connect(document, &SoundDocument::saved, crashRecovery, &CrashRecovery::settled);
    connect(document, &SoundDocument::discarded, crashRecovery, &CrashRecovery::settled);
    connect(recentFiles, &RecentFiles::chosen, document,
            [this](const QString &path) { document->incoming->add({path}); });
    connect(mainView, &MainView::filesDropped, document,
            [this](const QStringList &paths) { document->incoming->add({paths.front()}); });
    connect(mainViewController, &MainViewController::soundChanged, mainViewController,
            &MainViewController::refreshControls);
    connect(optionsMenu, &OptionsMenu::optionsChanged, mainViewController,
            &MainViewController::optionsChanged);
    connect(document, &SoundDocument::soundShown, panes, &IntonationPanes::setSound);
    connect(optionsMenu, &OptionsMenu::optionsChanged, panes, &IntonationPanes::optionsChanged);
    connect(reports, &ReportCommands::keySet, optionsMenu, &OptionsMenu::changed);
    connect(document, &SoundDocument::scaleTaken, optionsMenu, &OptionsMenu::changed);
}

AppDelegate::~AppDelegate()
{
    reports->cancelDeviations();
    (void)setWarningHandler(std::move(previousWarningHandler));
    AskViewController::setHelpOpener({});
    delete contextHelp;
    delete helpViewer;
    delete window;
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
    window->refreshMenus();
    window->showWhereLeft();
    mainView->setFocus();

    const std::optional<QString> initial = std::exchange(initialOpenFilePath, std::nullopt);
    // A recording that a crash kept from being saved comes before anything else.
    if (std::shared_ptr<WavStream> recovered = crashRecovery->offer(window))
        document->show(std::move(recovered));
    else if (!initial || !document->openFile(*initial))
        document->newRecording();
    document->incoming->start();
    (void)updateChecker->checkAtStartup();
    return true;
}

void AppDelegate::terminateWithoutAsking()
{
    mainViewController->stopTransport();
    reports->cancelDeviations();
    window->rememberGeometry();
    // Every event loop ends, a dialog's included: nobody is there to answer it.
    QCoreApplication::exit(0);
}

} // namespace quorval
