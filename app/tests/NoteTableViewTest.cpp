#include "app/NoteTableView.h"

#include "audio/tests/ChildProcess.h"
#include "options/tests/support/OptionsTestStore.h"
#include "streams/MusicStream.h"
#include "streams/WavStream.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QFile>
#include <QSignalSpy>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>

namespace quorval {
namespace {

// CSV text as rows of cells: quoted cells may hold commas, doubled quotes and line breaks.
std::vector<QStringList> parseCsv(const QString &text)
{
    std::vector<QStringList> rows(1);
    QString cell;
    bool quoted = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (quoted) {
            if (c == QLatin1Char('"') && i + 1 < text.size() && text[i + 1] == QLatin1Char('"')) {
                cell += c;
                ++i;
            } else if (c == QLatin1Char('"')) {
                quoted = false;
            } else {
                cell += c;
            }
        } else if (c == QLatin1Char('"')) {
            quoted = true;
        } else if (c == QLatin1Char(',')) {
            rows.back() << cell;
            cell.clear();
        } else if (c == QLatin1Char('\n')) {
            rows.back() << cell;
            cell.clear();
            rows.emplace_back();
        } else {
            cell += c;
        }
    }
    rows.pop_back(); // after the last line break
    return rows;
}

QStringList rowOf(const QTableWidget &table, int row)
{
    QStringList cells;
    for (int column = 0; column < table.columnCount(); ++column)
        cells << table.item(row, column)->text();
    return cells;
}

QTableWidget &tab(NoteTableView &view, int index)
{
    return *qobject_cast<QTableWidget *>(view.widget(index));
}

void clickRow(QTableWidget &table, int row)
{
    const QRect cell = table.visualRect(table.model()->index(row, 1));
    QTest::mouseClick(table.viewport(), Qt::LeftButton, Qt::NoModifier, cell.center());
}

using NoteTable = StoreTest;

// The window's table over the demo holds what `quorval-cli notes --csv` prints for it, row by
// row: computed away from the main thread through the same report.
TEST_F(NoteTable, showsTheCommandLinesFigures)
{
    // A copy away from the demo's own options file, so both read the options in force.
    QTemporaryDir folder;
    const QString demo = folder.filePath(QStringLiteral("demo.wav"));
    ASSERT_TRUE(QFile::copy(QStringLiteral(QUORVAL_DEMO_WAV), demo));
    // A real fork: a QProcess child would upset the thread checker's records of this process.
    test::ChildProcess cli(QStringLiteral(QUORVAL_CLI_PATH),
                           {QStringLiteral("notes"), QStringLiteral("--csv"), demo});
    ASSERT_TRUE(cli.finish(120000));
    ASSERT_EQ(cli.exitCode, 0) << cli.error.toStdString();
    const std::vector<QStringList> printed = parseCsv(QString::fromUtf8(cli.output));
    const auto blank = std::find_if(printed.begin(), printed.end(),
                                    [](const QStringList &row) { return row == QStringList{""}; });
    ASSERT_NE(blank, printed.end());
    const std::vector<QStringList> notes(printed.begin() + 1, blank);
    const std::vector<QStringList> degrees(blank + 2, printed.end());
    ASSERT_GT(notes.size(), 10u);

    auto wav = WavStream::createFromFile(demo.toStdString());
    ASSERT_NE(wav, nullptr);
    wav->waitForCopy();
    auto music = MusicStream::create(wav);
    NoteTableView view;
    QSignalSpy shown(&view, &NoteTableView::reportShown);
    view.setStretch(music, 0.0, 0.0);
    EXPECT_TRUE(view.isComputing());
    ASSERT_TRUE(shown.wait(120000));

    QTableWidget &noteRows = tab(view, 0);
    ASSERT_EQ(static_cast<std::size_t>(noteRows.rowCount()), notes.size());
    for (int row = 0; row < noteRows.rowCount(); ++row) {
        const QStringList cli = notes[static_cast<std::size_t>(row)];
        const QStringList cells = rowOf(noteRows, row);
        const double start = cli[0].toDouble();
        EXPECT_NEAR(cells[0].toDouble(), start, 0.0005) << row;
        EXPECT_EQ(cells[1], cli[2] + QString::number(cli[3].toInt() / 12 - 1)) << row;
        EXPECT_EQ(cells[3].toDouble(), cli[4].toDouble()) << row;
        EXPECT_EQ(cells[4].toDouble(), cli[5].toDouble()) << row;
        EXPECT_NEAR(cells[5].toDouble(), cli[1].toDouble() - start, 0.0011) << row;
    }
    // Degrees worst first, each with the figures printed for its number.
    QTableWidget &degreeRows = tab(view, 1);
    ASSERT_EQ(static_cast<std::size_t>(degreeRows.rowCount()), degrees.size());
    double previous = INFINITY;
    for (int row = 0; row < degreeRows.rowCount(); ++row) {
        const QStringList cells = rowOf(degreeRows, row);
        const auto cli = std::find_if(degrees.begin(), degrees.end(),
                                      [&](const QStringList &d) { return d[1] == cells[0]; });
        ASSERT_NE(cli, degrees.end()) << cells[0].toStdString();
        EXPECT_EQ(cells[1], (*cli)[2]);
        EXPECT_EQ(cells[2], (*cli)[3]);
        EXPECT_EQ(cells[4].toDouble(), (*cli)[5].toDouble());
        EXPECT_LE(std::abs(cells[4].toDouble()), previous);
        previous = std::abs(cells[4].toDouble());
    }
    // Each note's degree is the one the printed degree table gives its name.
    for (int row = 0; row < noteRows.rowCount(); ++row) {
        const QString name = notes[static_cast<std::size_t>(row)][2];
        const auto degree = std::find_if(degrees.begin(), degrees.end(),
                                         [&](const QStringList &d) { return d[2] == name; });
        ASSERT_NE(degree, degrees.end()) << name.toStdString();
        EXPECT_EQ(rowOf(noteRows, row)[2], (*degree)[1]) << row;
    }

    view.resize(700, 420);
    view.show();
    if (qEnvironmentVariableIsSet("QUORVAL_TEST_PICTURES"))
        view.grab().save(qEnvironmentVariable("QUORVAL_TEST_PICTURES") + "/note-table.png");
    wav->modified = false;
}

// A hand-made report: clicks answer the note's times (a degree's: its worst note's), Ctrl+C
// copies the selected rows, and the CSV export reads back cell for cell.
TEST_F(NoteTable, clicksCopiesAndExports)
{
    NoteReport report;
    report.notes = {{.startSeconds = 0.5,
                     .endSeconds = 1.25,
                     .noteNumber = 66,
                     .name = "F\u266F",
                     .degree = "3",
                     .meanCents = 4.0,
                     .spreadCents = 2.0,
                     .nameWithOctave = "F\u266F4"},
                    {.startSeconds = 1.5,
                     .endSeconds = 1.75,
                     .noteNumber = 70,
                     .name = "B\u266D \"low\", open",
                     .degree = "\u266D6",
                     .meanCents = -31.25,
                     .spreadCents = 7.5,
                     .nameWithOctave = "B\u266D \"low\", open4"},
                    {.startSeconds = 2.0,
                     .endSeconds = 3.0,
                     .noteNumber = 62,
                     .name = "D",
                     .degree = "1",
                     .meanCents = 2.0,
                     .spreadCents = 1.0,
                     .nameWithOctave = "D4"}};
    report.degrees = {{.degree = 0, .number = "1", .name = "D", .notes = 1, .meanCents = 2.0},
                      {.degree = 4, .number = "3", .name = "F\u266F", .notes = 1, .meanCents = 4.0},
                      {.degree = 8,
                       .number = "\u266D6",
                       .name = "B\u266D",
                       .notes = 1,
                       .meanCents = -31.25,
                       .worstNote = 1}};
    report.degrees[1].worstNote = 0;
    report.degrees[0].worstNote = 2;
    NoteTableView view;
    view.resize(600, 300);
    view.show();
    view.setReport(report);
    QSignalSpy clicked(&view, &NoteTableView::noteClicked);
    clickRow(tab(view, 0), 2);
    ASSERT_EQ(clicked.count(), 1);
    EXPECT_EQ(clicked[0][0].toDouble(), 2.0);
    EXPECT_EQ(clicked[0][1].toDouble(), 3.0);
    view.setCurrentIndex(1);
    EXPECT_EQ(rowOf(tab(view, 1), 0)[0], QStringLiteral("\u266D6"));
    clickRow(tab(view, 1), 1); // the third degree, F♯'s
    ASSERT_EQ(clicked.count(), 2);
    EXPECT_EQ(clicked[1][0].toDouble(), 0.5);
    EXPECT_EQ(clicked[1][1].toDouble(), 1.25);

    view.setCurrentIndex(0);
    QTableWidget &notes = tab(view, 0);
    notes.selectRow(2);
    notes.setSelectionMode(QAbstractItemView::MultiSelection);
    notes.selectRow(0);
    QApplication::setActiveWindow(&view);
    EXPECT_TRUE(QTest::qWaitForWindowActive(&view));
    notes.setFocus();
    QApplication::clipboard()->clear();
    QTest::keyClick(&notes, Qt::Key_C, Qt::ControlModifier);
    const QStringList lines = QApplication::clipboard()->text().split(QLatin1Char('\n'));
    ASSERT_EQ(lines.size(), 4); // header, two rows, the final line break
    EXPECT_EQ(lines[1], QStringLiteral("0.500\tF\u266F4\t3\t+4.0\t2.0\t0.750"));
    EXPECT_EQ(lines[2].split(QLatin1Char('\t'))[1], QStringLiteral("D4"));

    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("table.csv"));
    view.chooseExportPath = [&path] { return std::optional<QString>(path); };
    view.exportAction->trigger();
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const std::vector<QStringList> rows = parseCsv(QString::fromUtf8(file.readAll()));
    ASSERT_EQ(rows.size(), 1u + 3u + 1u + 1u + 3u);
    EXPECT_EQ(rows[2],
              QStringList({QStringLiteral("1.500"), QStringLiteral("B\u266D \"low\", open4"),
                           QStringLiteral("\u266D6"), QStringLiteral("-31.2"),
                           QStringLiteral("7.5"), QStringLiteral("0.250")}));
    EXPECT_EQ(rows[6], rowOf(tab(view, 1), 0));
    EXPECT_EQ(rows[4], QStringList{QString()});

    // A folder that is not there: a reason, and nothing written.
    EXPECT_TRUE(view.exportCsv(dir.filePath(QStringLiteral("gone/table.csv"))).has_value());
}

} // namespace
} // namespace quorval
