// The note table and the live read-out as panes of the real window.
#include "app/IntonationPanes.h"

#include "app/LiveReadout.h"
#include "app/NoteTableView.h"
#include "app/Transport.h"
#include "app/tests/WindowTest.h"
#include "options/Parameters.h"
#include "options/dialog/OptionsMenu.h"
#include "streams/NoteReport.h"

#include <QDockWidget>
#include <QLabel>
#include <QTableWidget>
#include <QTimer>

#include <gtest/gtest.h>

namespace quorval {
namespace {

TEST_F(WindowTest, noteTableFollowsTheSelectionAndSelectsTheNoteClicked)
{
    ASSERT_TRUE(controller->musicStream()->waitUntilCalculated(std::chrono::seconds(60)));
    IntonationPanes &panes = *delegate->panes;
    ASSERT_FALSE(panes.noteTableDock->isVisible());

    // v then n shows the table, of the whole sound without a selection.
    type('v');
    type('n');
    ASSERT_TRUE(panes.noteTableDock->isVisible());
    EXPECT_TRUE(window->noteTableMenuItem->isChecked());
    WAIT_FOR(!panes.noteTable->isComputing() && panes.noteTable->report().notes.size() > 8, 60000);
    const std::vector<NoteReport::Note> whole = panes.noteTable->report().notes;

    // A selection from the third note's start to the fifth's end: those three notes, as the
    // status bar says.
    ASSERT_TRUE(controller->select(whole[2].startSeconds, whole[4].endSeconds));
    EXPECT_TRUE(window->status->selectionLabel->text().startsWith(QStringLiteral("Selection 0:0")))
        << window->status->selectionLabel->text().toStdString();
    WAIT_FOR(!panes.noteTable->isComputing() && panes.noteTable->report().notes.size() == 3, 30000);
    EXPECT_EQ(panes.noteTable->report().notes.front().name, whole[2].name);

    // Select All brings every note back.
    window->selectAllSoundMenuItem->trigger();
    WAIT_FOR(!panes.noteTable->isComputing() &&
                 panes.noteTable->report().notes.size() == whole.size(),
             30000);

    // A click on a row selects that note in the trace and leaves the table's rows as they are.
    auto *notes = qobject_cast<QTableWidget *>(panes.noteTable->widget(0));
    ASSERT_TRUE(notes);
    notes->setCurrentCell(6, 0);
    emit notes->cellClicked(6, 0);
    const HView &time = *controller->musicStream()->timeView;
    EXPECT_DOUBLE_EQ(time.selectionStart, whole[6].startSeconds);
    EXPECT_DOUBLE_EQ(time.selectionEnd, whole[6].endSeconds);
    // Once no refresh is pending or under way, the rows are still the whole sound's.
    const auto *refresh = panes.findChild<QTimer *>(QString(), Qt::FindDirectChildrenOnly);
    ASSERT_TRUE(refresh);
    WAIT_FOR(!refresh->isActive() && !panes.noteTable->isComputing(), 30000);
    EXPECT_EQ(panes.noteTable->report().notes.size(), whole.size());

    // Hidden again with the same keys; the layout comes back at the next start.
    type('v');
    type('n');
    EXPECT_FALSE(panes.noteTableDock->isVisible());
    type('v');
    type('n');
    ASSERT_TRUE(window->close());
    launch(demoPath);
    EXPECT_TRUE(delegate->panes->noteTableDock->isVisible());
}

TEST_F(WindowTest, liveReadoutShowsTheNoteAtTheNeedleInWrittenPitch)
{
    ASSERT_TRUE(controller->musicStream()->waitUntilCalculated(std::chrono::seconds(60)));
    IntonationPanes &panes = *delegate->panes;
    type('v');
    type('l');
    ASSERT_TRUE(panes.liveReadoutDock->isVisible());
    // The demo's third note, F♯4 from 1.2 s, is played about 25 cents sharp.
    controller->transport->playhead().moveNeedle(1.5);
    WAIT_FOR(panes.liveReadout->noteText().startsWith(QStringLiteral("F\u266f4")), 5000);
    EXPECT_GT(panes.liveReadout->cents(), 5.0);
    EXPECT_LT(panes.liveReadout->cents(), 45.0);

    // A B♭ clarinettist reads written pitch everywhere: the read-out, the table and the keys.
    ASSERT_TRUE(Parameters::shared().transposition.setFromText(QStringLiteral("Bb")));
    emit delegate->optionsMenu->optionsChanged();
    WAIT_FOR(panes.liveReadout->noteText().startsWith(QStringLiteral("G\u266f4")), 5000);
    type('v');
    type('n');
    WAIT_FOR(!panes.noteTable->isComputing() && !panes.noteTable->report().notes.empty(), 60000);
    EXPECT_EQ(panes.noteTable->report().notes.front().nameWithOctave, "E4");
    WAIT_FOR(controller->displayView->frame().writtenKeyNames[0] == QStringLiteral("D"), 5000);
    ASSERT_TRUE(Parameters::shared().transposition.setFromText(QStringLiteral("Concert pitch")));
    emit delegate->optionsMenu->optionsChanged();
    WAIT_FOR(controller->displayView->frame().writtenKeyNames[0].isEmpty(), 5000);
}

} // namespace
} // namespace quorval
