#pragma once

#include <QObject>

#include <memory>

class QAction;
class QDockWidget;
class QMainWindow;
class QTimer;

namespace quorval {

class LiveReadout;
class LiveReadoutFeed;
class MainViewController;
class MusicStream;
class NoteTableView;

// The intonation at a glance, as two panes of the main window: the note table (docked at the
// right) and the live read-out (docked at the bottom; it can float and grow for a music stand).
// Each is shown and hidden by a checkable action for the View menu and remembered with the
// window's layout. The table follows the shown sound, its selection (the whole sound without
// one), the options and a growing recording; clicking a note selects it in the trace. The
// read-out follows the newest segment while recording, else the segment at the needle.
//
// Main thread only.
class IntonationPanes : public QObject
{
    Q_OBJECT

public:
    IntonationPanes(QMainWindow &window, MainViewController &content);
    ~IntonationPanes() override;

    // Follows music (may be null).
    void setSound(std::shared_ptr<MusicStream> music);
    // The key, temperament or another option changed: the table is worked out again.
    void optionsChanged();

    QAction *noteTableAction() const;
    QAction *liveReadoutAction() const;

    QDockWidget *const noteTableDock;
    QDockWidget *const liveReadoutDock;
    NoteTableView *const noteTable;
    LiveReadout *const liveReadout;

private:
    // Asks for the table of the selection after a short pause, so a drag or a burst of
    // recorded segments costs one report.
    void refreshTableSoon();
    void refreshTable();
    void follow();

    MainViewController &content;
    std::unique_ptr<LiveReadoutFeed> feed;
    std::shared_ptr<MusicStream> music;
    QTimer *tableTimer;
    bool selectingFromTable = false;
};

} // namespace quorval
