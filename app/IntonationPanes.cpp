#include "app/IntonationPanes.h"

#include "app/LiveReadout.h"
#include "app/MainViewController.h"
#include "app/NoteTableView.h"
#include "app/Transport.h"
#include "streams/DataView.h"
#include "streams/MusicStream.h"
#include "streams/NoteReport.h"

#include <QAction>
#include <QDockWidget>
#include <QMainWindow>
#include <QTimer>

namespace quorval {

namespace {

// A recording's table is worked out again at most this often; a drag's once it rests.
constexpr int kRecordingRefreshMs = 1000;
constexpr int kSelectionRefreshMs = 200;
// Sizes a pane opens at from the menu: the table wide enough for its columns, the read-out a
// strip under the trace (drag or float it to grow it).
constexpr int kTableWidth = 470;
constexpr int kReadoutHeight = 170;

QDockWidget *makeDock(QMainWindow &window, const QString &title, const QString &name, QWidget *pane)
{
    auto *dock = new QDockWidget(title, &window);
    // saveState keys the layout by name.
    dock->setObjectName(name);
    dock->setWidget(pane);
    dock->hide();
    return dock;
}

} // namespace

IntonationPanes::IntonationPanes(QMainWindow &window, MainViewController &controller)
    : QObject(&window),
      noteTableDock(makeDock(window, tr("Note Table"), QStringLiteral("NoteTable"),
                             new NoteTableView(&window))),
      liveReadoutDock(makeDock(window, tr("Live Read-out"), QStringLiteral("LiveReadout"),
                               new LiveReadout(&window))),
      noteTable(static_cast<NoteTableView *>(noteTableDock->widget())),
      liveReadout(static_cast<LiveReadout *>(liveReadoutDock->widget())), content(controller),
      feed(std::make_unique<LiveReadoutFeed>(*liveReadout, controller.transport->playback())),
      tableTimer(new QTimer(this))
{
    window.addDockWidget(Qt::RightDockWidgetArea, noteTableDock);
    window.addDockWidget(Qt::BottomDockWidgetArea, liveReadoutDock);
    liveReadout->setMinimumSize(240, 120);
    noteTable->setMinimumWidth(320);
    const auto opensAt = [this, main = &window](QDockWidget *dock, int size,
                                                Qt::Orientation across) {
        connect(dock->toggleViewAction(), &QAction::triggered, this,
                [main, dock, size, across](bool on) {
                    if (on && !dock->isFloating())
                        main->resizeDocks({dock}, {size}, across);
                });
    };
    opensAt(noteTableDock, kTableWidth, Qt::Horizontal);
    opensAt(liveReadoutDock, kReadoutHeight, Qt::Vertical);

    tableTimer->setSingleShot(true);
    connect(tableTimer, &QTimer::timeout, this, &IntonationPanes::refreshTable);
    connect(noteTableDock, &QDockWidget::visibilityChanged, this, [this](bool visible) {
        if (visible)
            refreshTable();
    });
    connect(liveReadoutDock, &QDockWidget::visibilityChanged, this, &IntonationPanes::follow);
    // The note clicked is selected in the trace; the table keeps its rows meanwhile.
    connect(noteTable, &NoteTableView::noteClicked, this, [this](double start, double end) {
        selectingFromTable = true;
        (void)content.select(start, end);
        selectingFromTable = false;
    });
    connect(&content, &MainViewController::selectionChanged, this, [this] {
        if (!selectingFromTable)
            refreshTableSoon();
    });
    // While recording the sound grows: the notes that ended appear.
    connect(&content, &MainViewController::soundChanged, this, [this] {
        if (content.transport->isRecording() && !tableTimer->isActive())
            tableTimer->start(kRecordingRefreshMs);
    });
    connect(content.transport, &Transport::recordingStopped, this, &IntonationPanes::refreshTable);
}

IntonationPanes::~IntonationPanes() = default;

QAction *IntonationPanes::noteTableAction() const
{
    return noteTableDock->toggleViewAction();
}

QAction *IntonationPanes::liveReadoutAction() const
{
    return liveReadoutDock->toggleViewAction();
}

void IntonationPanes::setSound(std::shared_ptr<MusicStream> shown)
{
    music = std::move(shown);
    follow();
    refreshTable();
}

void IntonationPanes::optionsChanged()
{
    refreshTable();
}

void IntonationPanes::refreshTableSoon()
{
    tableTimer->start(kSelectionRefreshMs);
}

void IntonationPanes::refreshTable()
{
    tableTimer->stop();
    if (!noteTableDock->isVisible())
        return;
    if (!music) {
        noteTable->setReport({});
        return;
    }
    const HView &time = *music->timeView;
    const bool selected = time.hasSelection() && time.selectionEnd > time.selectionStart;
    noteTable->setStretch(music, selected ? time.selectionStart : 0.0,
                          selected ? time.selectionEnd : 0.0);
}

void IntonationPanes::follow()
{
    feed->follow(liveReadoutDock->isVisible() ? music : nullptr);
}

} // namespace quorval
