#pragma once

#include "app/SoundDocument.h"
#include "streams/Warnings.h"

#include <QObject>
#include <QString>

#include <optional>

class QMediaDevices;

namespace quorval {

class ContextHelp;
class CrashRecovery;
class HelpViewer;
class MainView;
class IntonationPanes;
class MainViewController;
class MainWindow;
class OptionsMenu;
class Parameters;
class RecentFiles;
class ReportCommands;
class UpdateChecker;

// The application: makes the window and the parts that own its jobs (the sound document, the
// recent files, crash recovery, the reports, help and the update check), ties each part's
// signals to the others, and runs the start-up. Every message goes through the message dialog.
// Main thread only.
class AppDelegate : public QObject
{
    Q_OBJECT

public:
    // parameters must outlive the delegate. Empty panels: file dialogs.
    explicit AppDelegate(Parameters &parameters, SoundDocument::Panels panels = {});
    ~AppDelegate() override;

    // Start-up: checks the user's files (importing the earlier edition's preferences), shows the
    // window, offers what a crash left, and opens initialOpenFilePath, or a new recording when
    // none is set or it cannot be read; then takes files from outside. False after "Can't
    // access file system: internal error".
    bool applicationDidFinishLaunching();

    // Ends the application without asking, as the session does at logout (SIGTERM, SIGHUP,
    // SIGINT): the transport stops, a take with sound is kept for recovery at the next start,
    // and what holds nothing of the user's goes as at Quit.
    void terminateWithoutAsking();

    // A file to open once start-up has finished.
    std::optional<QString> initialOpenFilePath;

    MainWindow *window;
    MainView *mainView;
    OptionsMenu *optionsMenu;
    MainViewController *mainViewController;
    // The note table and live read-out panes; owned by the window.
    IntonationPanes *panes;
    SoundDocument *document;
    RecentFiles *recentFiles;
    CrashRecovery *crashRecovery;
    ReportCommands *reports;
    // One help window for the run, a top-level window of its own.
    HelpViewer *helpViewer;
    ContextHelp *contextHelp;
    UpdateChecker *updateChecker;

signals:
    // The window closed as asked (the event loop should end).
    void terminate();

private:
    Parameters &parameters;
    QMediaDevices *mediaDevices;
    WarningHandler previousWarningHandler;
};

} // namespace quorval
