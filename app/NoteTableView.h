#pragma once

#include "streams/BackgroundRun.h"
#include "streams/NoteReport.h"

#include <QString>
#include <QTabWidget>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QAction;
class QTableWidget;

namespace quorval {

class MusicStream;

// The intonation of a stretch note by note: a "Notes" tab with one row per note played (start,
// name, scale degree, mean deviation in cents, spread, duration) in time order, and a "Scale
// degrees" tab with each degree's mean and count, worst (greatest |mean|) first. The figures are
// NoteReport's, as the command line prints them.
//
// Ctrl+C copies the shown tab's selected rows (all when none is selected) as tab-separated text
// with its header; "Export table..." writes both tables as CSV. Main thread only.
class NoteTableView : public QTabWidget
{
    Q_OBJECT

public:
    explicit NoteTableView(QWidget *parent = nullptr);

    // Shows report at once; a computation under way is dropped.
    void setReport(const NoteReport &report);
    // Computes the report of [t0, t1) seconds of music (zero width: the whole sound) with the
    // current options away from the main thread, and shows it when done (reportShown). A newer
    // call, setReport or destruction drops the one under way.
    void setStretch(std::shared_ptr<MusicStream> music, double t0, double t1);
    [[nodiscard]] bool isComputing() const { return run.isRunning(); }
    [[nodiscard]] const NoteReport &report() const { return shown; }

    // The shown tab's rows as Copy puts them on the clipboard: header, then one line per row,
    // cells separated by tabs; only the selected rows when some are.
    [[nodiscard]] QString copiedText() const;
    // Both tables as CSV (RFC 4180 quoting), UTF-8: the notes, a blank line, the degrees.
    [[nodiscard]] QString csv() const;
    // Writes csv() to path through a temporary file renamed over it when complete, so a
    // failure leaves what was there. The reason when it fails.
    [[nodiscard]] std::optional<QString> exportCsv(const QString &path) const;

    // Where "Export table..." writes: asked of the user (nothing: canceled). Tests replace it.
    std::function<std::optional<QString>()> chooseExportPath;

    QAction *copyAction = nullptr;
    QAction *exportAction = nullptr;

signals:
    // A row was clicked: a note's stretch, or for a degree that of its worst note (seconds).
    void noteClicked(double startSeconds, double endSeconds);
    // setStretch's report is shown.
    void reportShown();

private:
    void fill();
    void rowClicked(QTableWidget *table, int row);
    void exportTable();

    QTableWidget *notesTable = nullptr;
    QTableWidget *degreesTable = nullptr;
    NoteReport shown;
    std::vector<std::size_t> degreeOrder; // shown.degrees indices, worst first
    BackgroundRun<NoteReport> run;
};

} // namespace quorval
