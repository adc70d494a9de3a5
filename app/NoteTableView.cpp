#include "app/NoteTableView.h"

#include "app/AskViewController.h"
#include "streams/MusicStream.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QFileDialog>
#include <QHeaderView>
#include <QSaveFile>
#include <QTableWidget>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace quorval {

namespace {

const QStringList kNoteHeaders = {QStringLiteral("Start (s)"), QStringLiteral("Note"),
                                  QStringLiteral("Degree"),    QStringLiteral("Cents"),
                                  QStringLiteral("Spread"),    QStringLiteral("Duration (s)")};
const QStringList kDegreeHeaders = {
    QStringLiteral("Degree"),           QStringLiteral("Note"),  QStringLiteral("Notes"),
    QStringLiteral("Time (s)"),         QStringLiteral("Cents"), QStringLiteral("Spread"),
    QStringLiteral("Worst note at (s)")};

// A figure as the command line prints it: the C library's rounding, which on a tie goes to the
// even digit where Qt's own formatting rounds away from zero.
QString printed(const char *format, double value)
{
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return QString::fromLatin1(text);
}

QString cents(double value)
{
    return printed("%+.1f", value);
}

QString spread(double value)
{
    return printed("%.1f", value);
}

QString seconds(double value)
{
    return printed("%.3f", value);
}

QTableWidget *makeTable(const QStringList &headers, QWidget *parent)
{
    auto *table = new QTableWidget(0, static_cast<int>(headers.size()), parent);
    table->setHorizontalHeaderLabels(headers);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->verticalHeader()->hide();
    table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    table->horizontalHeader()->setStretchLastSection(true);
    return table;
}

void setRow(QTableWidget *table, int row, const QStringList &cells)
{
    for (int column = 0; column < cells.size(); ++column) {
        auto *item = new QTableWidgetItem(cells[column]);
        // Names read best on the left, figures aligned on their decimals on the right.
        const bool name = !cells[column].isEmpty() && cells[column].front().isLetter();
        item->setTextAlignment(name ? Qt::AlignLeft | Qt::AlignVCenter
                                    : Qt::AlignRight | Qt::AlignVCenter);
        table->setItem(row, column, item);
    }
}

QStringList rowCells(const QTableWidget *table, int row)
{
    QStringList cells;
    for (int column = 0; column < table->columnCount(); ++column)
        cells << (table->item(row, column) ? table->item(row, column)->text() : QString());
    return cells;
}

QStringList headerCells(const QTableWidget *table)
{
    QStringList cells;
    for (int column = 0; column < table->columnCount(); ++column)
        cells << table->horizontalHeaderItem(column)->text();
    return cells;
}

QString csvLine(const QStringList &cells)
{
    QStringList quoted;
    for (QString cell : cells) {
        if (cell.contains(QLatin1Char(',')) || cell.contains(QLatin1Char('"')) ||
            cell.contains(QLatin1Char('\n')))
            cell = QLatin1Char('"') + cell.replace(QLatin1Char('"'), QStringLiteral("\"\"")) +
                   QLatin1Char('"');
        quoted << cell;
    }
    return quoted.join(QLatin1Char(',')) + QLatin1Char('\n');
}

QString csvTable(const QTableWidget *table)
{
    QString text = csvLine(headerCells(table));
    for (int row = 0; row < table->rowCount(); ++row)
        text += csvLine(rowCells(table, row));
    return text;
}

} // namespace

NoteTableView::NoteTableView(QWidget *parent) : QTabWidget(parent)
{
    notesTable = makeTable(kNoteHeaders, this);
    degreesTable = makeTable(kDegreeHeaders, this);
    addTab(notesTable, tr("Notes"));
    addTab(degreesTable, tr("Scale degrees"));
    for (QTableWidget *table : {notesTable, degreesTable})
        connect(table, &QTableWidget::cellClicked, this,
                [this, table](int row, int) { rowClicked(table, row); });

    copyAction = new QAction(tr("&Copy"), this);
    copyAction->setShortcut(QKeySequence::Copy);
    copyAction->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    connect(copyAction, &QAction::triggered, this,
            [this] { QApplication::clipboard()->setText(copiedText()); });
    exportAction = new QAction(tr("Export table..."), this);
    connect(exportAction, &QAction::triggered, this, &NoteTableView::exportTable);
    addActions({copyAction, exportAction});
    setContextMenuPolicy(Qt::ActionsContextMenu);

    chooseExportPath = [this]() -> std::optional<QString> {
        const QString path = QFileDialog::getSaveFileName(this, tr("Export table"), QString(),
                                                          tr("CSV files (*.csv)"));
        if (path.isEmpty())
            return std::nullopt;
        return path;
    };
}

void NoteTableView::setReport(const NoteReport &report)
{
    run.cancel();
    shown = report;
    fill();
}

void NoteTableView::setStretch(std::shared_ptr<MusicStream> music, double t0, double t1)
{
    run.start(
        [music = std::move(music), t0, t1](const std::atomic<bool> &canceled) {
            return NoteReport::compute(*music, t0, t1, canceled);
        },
        [this](const NoteReport &report) {
            shown = report;
            fill();
            emit reportShown();
        });
}

void NoteTableView::fill()
{
    notesTable->setRowCount(static_cast<int>(shown.notes.size()));
    for (std::size_t k = 0; k < shown.notes.size(); ++k) {
        const NoteReport::Note &note = shown.notes[k];
        setRow(notesTable, static_cast<int>(k),
               {seconds(note.startSeconds), QString::fromStdString(note.nameWithOctave),
                QString::fromStdString(note.degree), cents(note.meanCents),
                spread(note.spreadCents), seconds(note.endSeconds - note.startSeconds)});
    }

    degreeOrder.resize(shown.degrees.size());
    for (std::size_t k = 0; k < degreeOrder.size(); ++k)
        degreeOrder[k] = k;
    std::stable_sort(degreeOrder.begin(), degreeOrder.end(), [this](std::size_t a, std::size_t b) {
        return std::abs(shown.degrees[a].meanCents) > std::abs(shown.degrees[b].meanCents);
    });
    degreesTable->setRowCount(static_cast<int>(degreeOrder.size()));
    for (std::size_t k = 0; k < degreeOrder.size(); ++k) {
        const NoteReport::Degree &degree = shown.degrees[degreeOrder[k]];
        setRow(degreesTable, static_cast<int>(k),
               {QString::fromStdString(degree.number), QString::fromStdString(degree.name),
                QString::number(degree.notes), seconds(degree.totalSeconds),
                cents(degree.meanCents), spread(degree.spreadCents),
                seconds(shown.notes[degree.worstNote].startSeconds)});
    }
}

void NoteTableView::rowClicked(QTableWidget *table, int row)
{
    if (row < 0)
        return;
    const auto r = static_cast<std::size_t>(row);
    std::size_t note = r;
    if (table == degreesTable) {
        if (r >= degreeOrder.size())
            return;
        note = shown.degrees[degreeOrder[r]].worstNote;
    }
    if (note >= shown.notes.size())
        return;
    emit noteClicked(shown.notes[note].startSeconds, shown.notes[note].endSeconds);
}

QString NoteTableView::copiedText() const
{
    const auto *table = currentWidget() == degreesTable ? degreesTable : notesTable;
    QList<int> rows;
    for (const QModelIndex &index : table->selectionModel()->selectedRows())
        rows << index.row();
    std::sort(rows.begin(), rows.end());
    if (rows.isEmpty())
        for (int row = 0; row < table->rowCount(); ++row)
            rows << row;
    QString text = headerCells(table).join(QLatin1Char('\t')) + QLatin1Char('\n');
    for (const int row : rows)
        text += rowCells(table, row).join(QLatin1Char('\t')) + QLatin1Char('\n');
    return text;
}

QString NoteTableView::csv() const
{
    return csvTable(notesTable) + QLatin1Char('\n') + csvTable(degreesTable);
}

std::optional<QString> NoteTableView::exportCsv(const QString &path) const
{
    const QByteArray bytes = csv().toUtf8();
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit())
        return file.errorString();
    return std::nullopt;
}

void NoteTableView::exportTable()
{
    const std::optional<QString> path = chooseExportPath();
    if (!path)
        return;
    if (const std::optional<QString> error = exportCsv(*path))
        AskViewController::message(this, tr("Export table"),
                                   tr("Can't write the table to %1: %2").arg(*path, *error));
}

} // namespace quorval
