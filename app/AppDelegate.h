#pragma once

#include "app/AskViewController.h"
#include "streams/Deviations.h"
#include "streams/Warnings.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

class QAction;
class QLabel;
class QMainWindow;
class QMediaDevices;
class QMenu;
class QProgressBar;
class QProgressDialog;
class QTimer;

namespace quorval {

class ContextHelp;
class HelpViewer;
class MainView;
class MainViewController;
class MusicStream;
class OptionsMenu;
class Parameters;
class UpdateChecker;
class WavStream;

// The application: the main window with its menu bar (File, Options, View, Edit, Help and, in
// developer mode, Developer) and status bar, and the commands behind them: new recording,
// open, save, save as, export of the selection, recent files, view types, deviations and quit.
// Every message goes through the message dialog. Main thread only.
class AppDelegate : public QObject
{
    Q_OBJECT

public:
    // What the file panels answer; tests replace them. Nothing when cancelled.
    struct Panels
    {
        std::function<std::optional<QString>()> chooseFileToOpen;
        // suggested: a file name to start from.
        std::function<std::optional<QString>(const QString &suggested)> chooseFileToSave;
    };

    static constexpr int kRecentFiles = 10;
    // The settings key of the recent files list and of the window geometry.
    static constexpr const char *kRecentFilesKey = "Window/RecentFiles";
    static constexpr const char *kGeometryKey = "Window/Geometry";

    // parameters must outlive the delegate. Empty panels: file dialogs.
    explicit AppDelegate(Parameters &parameters, Panels panels = {});
    ~AppDelegate() override;

    // Start-up: checks the user's files (importing the earlier edition's preferences), sets up
    // the menus and presets, shows the window and opens initialOpenFilePath, or a new recording
    // when none is set. False after "Can't access file system: internal error".
    bool applicationDidFinishLaunching();
    [[nodiscard]] bool isLaunched() const { return launched; }

    // File commands.
    void newFileMenuItemSelected();
    void openFileMenuItemSelected();
    void saveFileMenuItemSelected();
    void saveAsFileMenuItemSelected();
    // Writes the selected stretch as a WAV file of the sound's format, through a new file
    // renamed over the target only when complete.
    void exportSelectionMenuItemSelected();
    void propertiesMenuItemSelected();
    void quitMenuItemSelected();
    // Opens path as the current sound (Open after its panel, recent files, files dropped or
    // sent by another launch); before start-up has finished it is kept for then. False when it
    // could not be read.
    bool openFile(const QString &path);
    // View commands: 0..5 for Composite, RMS Amplitude, Amplitude, Pitch, Quality, Spectrum.
    void setViewType(int index);
    void deviationsViewMenuItemSelected();
    // Edit commands.
    void selectAllSoundEditMenuItemSelected();
    // Developer commands.
    void developerModeMenuItemSelected();
    void statusMenuItemSelected();
    void savePitchesMenuItemSelected();
    void ThrowExceptionMenuItemSelected();
    void gettingStartedHelpMenuItemSelected();
    void helpHelpMenuItemSelected();
    void checkForUpdatesMenuItemSelected();

    // Asks about an unsaved sound (when "Check for Modified Files" is on): yes saves it, no goes
    // on, cancel (or a failed save) answers false: the command stops.
    bool shouldDiscardModifiedSound();
    // The modified-sound check before quitting; true when the application may terminate.
    bool applicationShouldTerminate();
    // Ends the application without asking, as the session does at logout (SIGTERM, SIGHUP,
    // SIGINT): the transport stops, a take with sound is kept for recovery at the next start,
    // and what holds nothing of the user's goes as at Quit.
    void terminateWithoutAsking();

    // Recoveries offered at one start at most; the rest wait for a later start.
    static constexpr int kRecoveryOffers = 3;

    // Enabled states, preset checks, developer mode and the view type's check mark.
    void refreshMenus();
    // The status bar's sound name, length and analysis indicator (also on a 250 ms timer).
    void refreshStatus();

    // The window's file panels, for tests.
    Panels panels;
    // A file to open once start-up has finished.
    std::optional<QString> initialOpenFilePath;
    std::optional<Deviations::Results> deviationsResults;
    // The crash copy of the recovered recording shown, removed when it is saved.
    std::optional<QString> recoveredFrom;
    std::weak_ptr<WavStream> recoveredStream;
    // The sound the user chose not to save ("No"): gone for good once replaced.
    std::weak_ptr<WavStream> discardedStream;
    bool deviationsCanceled = false;

    QMainWindow *window;
    MainView *mainView;
    MainViewController *mainViewController;
    OptionsMenu *optionsMenu;
    QMenu *fileMenu;
    QAction *fileNewMenuItem;
    QAction *fileOpenMenuItem;
    QAction *fileSaveMenuItem;
    QAction *fileSaveAsMenuItem;
    QAction *exportSelectionMenuItem;
    QAction *propertiesMenuItem;
    QMenu *recentFilesMenu;
    QAction *checkForUpdatesMenuItem;
    // One help window for the run, a top-level window of its own.
    HelpViewer *helpViewer;
    ContextHelp *contextHelp;
    UpdateChecker *updateChecker;
    QMenu *presetsMenu;
    QMenu *editMenu;
    QAction *cutSoundMenuItem;
    QAction *copySoundMenuItem;
    QAction *pasteSoundMenuItem;
    QAction *selectAllSoundMenuItem;
    QMenu *viewMenu;
    QAction *showDeviationsMenuItem;
    QMenu *helpMenu;
    QMenu *developerMenu;
    QAction *developerModeMenuItem;
    // Reaches developer mode while the Developer menu is hidden.
    QAction *helpDeveloperModeMenuItem;
    std::array<QAction *, 6> viewMenuItems{};
    QProgressDialog *deviationsProgress = nullptr;
    QLabel *soundLabel;
    QLabel *hoverLabel;
    QProgressBar *analysisBar;

signals:
    // The window asked to quit and may (the event loop should end).
    void terminate();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void buildMenus();
    void refreshRecentFiles();
    void rememberRecentFile(const QString &path);
    void forgetRecentFile(const QString &path);
    // Shows stream in the window (null keeps the old one).
    void showMusic(std::shared_ptr<MusicStream> music);
    // Lets the sound the user chose not to save go for good, if it is still the one shown.
    void forgetDiscardedSound();
    // Offers each recording a crash left unsaved (kRecoveryOffers at most): recover (then
    // nothing else opens), discard or later. True when one was recovered.
    bool offerRecoveries();
    bool saveTo(const std::optional<QString> &path);
    // The selection on the time axis, in frames; nothing without one.
    [[nodiscard]] std::optional<std::pair<std::int64_t, std::int64_t>> selectedFrames() const;
    void deviationsDone(const Deviations::Results &results);
    void cancelDeviations();
    [[nodiscard]] QString soundName() const;

    Parameters &parameters;
    Deviations deviations;
    QTimer *statusTimer;
    QMediaDevices *mediaDevices;
    bool launched = false;
    WarningHandler previousWarningHandler;
};

} // namespace quorval
