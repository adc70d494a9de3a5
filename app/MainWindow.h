#pragma once

#include <QMainWindow>
#include <QString>

#include <array>
#include <functional>
#include <optional>
#include <vector>

class QAction;
class QMenu;

namespace quorval {

class HelpViewer;
class IntonationPanes;
class MainViewController;
class OptionsMenu;
class Parameters;
class RecentFiles;
class ReportCommands;
class SoundDocument;
class StatusLine;
class UpdateChecker;

// The main window: its menu bar (File, Options, View, Edit, Help and, in developer mode,
// Developer), whose items are the commands of the parts it is given and carry their keys (the
// f and v prefixes as two-key sequences), the status bar, its geometry from one run to the next,
// and its close, which the sound document may refuse. Main thread only.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    // What the menus command; every part outlives the window's use of it.
    struct Parts
    {
        Parameters &parameters;
        SoundDocument &document;
        RecentFiles &recentFiles;
        ReportCommands &reports;
        OptionsMenu &optionsMenu;
        HelpViewer &helpViewer;
        UpdateChecker &updateChecker;
        MainViewController &content;
        IntonationPanes &panes;
    };

    // The settings keys of the window geometry and of its panes' layout.
    static constexpr const char *kGeometryKey = "Window/Geometry";
    static constexpr const char *kPanesKey = "Window/Panes";

    MainWindow();
    ~MainWindow() override;

    // Builds the menus and the status bar over parts. Once, before the window shows.
    void setParts(const Parts &parts);
    // Shows the window where it was last left.
    void showWhereLeft();
    // Keeps the window's place for the next start.
    void rememberGeometry();

    // Enabled states, preset checks, developer mode and the view type's check mark.
    void refreshMenus();

    QMenu *fileMenu = nullptr;
    QAction *fileSaveMenuItem = nullptr;
    QAction *fileSaveAsMenuItem = nullptr;
    QAction *exportSelectionMenuItem = nullptr;
    QAction *propertiesMenuItem = nullptr;
    QAction *checkForUpdatesMenuItem = nullptr;
    QMenu *viewMenu = nullptr;
    // Composite, RMS Amplitude, Amplitude, Pitch, Quality, Spectrum.
    std::array<QAction *, 6> viewMenuItems{};
    QAction *showDeviationsMenuItem = nullptr;
    QAction *noteTableMenuItem = nullptr;
    QAction *liveReadoutMenuItem = nullptr;
    QAction *guessKeyMenuItem = nullptr;
    QMenu *editMenu = nullptr;
    QAction *selectAllSoundMenuItem = nullptr;
    QMenu *helpMenu = nullptr;
    QAction *aboutMenuItem = nullptr;
    QMenu *developerMenu = nullptr;
    QAction *developerModeMenuItem = nullptr;
    // Reaches developer mode while the Developer menu is hidden.
    QAction *helpDeveloperModeMenuItem = nullptr;
    StatusLine *status;

    // Asked before the window closes; false keeps it open.
    std::function<bool()> mayClose;

signals:
    // The window closed as asked (the event loop should end).
    void closed();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void buildMenus();
    void setViewType(int index);
    void showProperties();
    void showAbout();

    // Set once by setParts.
    std::optional<Parts> parts;
    // Ties to the parts' signals, cut before the window's own widgets go: the parts' widgets
    // among them signal as they are destroyed.
    std::vector<QMetaObject::Connection> partTies;
};

} // namespace quorval
