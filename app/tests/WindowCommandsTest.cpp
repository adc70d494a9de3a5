#include "analysis/tests/support/EndedProcess.h"
#include "app/LevelMeter.h"
#include "app/RecentFiles.h"
#include "app/ReportCommands.h"
#include "app/Transport.h"
#include "app/TransportBar.h"
#include "app/ZoomControls.h"
#include "app/tests/WindowTest.h"
#include "audio/SoundDevices.h"
#include "audio/tests/SoundServer.h"
#include "display/DisplayView.h"
#include "help/HelpViewer.h"
#include "help/UpdateChecker.h"
#include "options/dialog/OptionsMenu.h"
#include "options/dialog/ParmViewController.h"
#include "streams/Warnings.h"
#include "streams/WorkingFiles.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QRegularExpression>
#include <QScreen>
#include <QSignalSpy>
#include <QTabWidget>
#include <QToolButton>
#include <QUuid>

#include <cmath>
#include <functional>
#include <optional>
#include <thread>
#include <vector>

namespace quorval {
namespace {

using Answer = AskViewController::Answer;

// The number after "NAME = " in a report; NaN when there is none.
double figure(const QString &report, const char *name)
{
    const QRegularExpressionMatch m =
        QRegularExpression(QLatin1String(name) + QStringLiteral(" = ([-+.0-9]+)")).match(report);
    bool ok = false;
    const double value = m.captured(1).toDouble(&ok);
    return ok ? value : std::nan("");
}

// A key is its menu item or button, and works whatever in the window has the focus: the trace,
// a label, the menu bar after a menu was closed with Escape.
TEST_F(WindowTest, keysAreTheirMenuItemsWhateverHasTheFocus)
{
    HView &time = *controller->musicStream()->timeView;
    WAIT_FOR(time.timeWidth > 0.0, 5000);
    const auto focusMenuBar = [this] {
        QMenuBar *bar = window->menuBar();
        QTest::mouseClick(bar, Qt::LeftButton, {},
                          bar->actionGeometry(window->fileMenu->menuAction()).center());
        EXPECT_TRUE(QTest::qWaitFor([this] { return window->fileMenu->isVisible(); }, 2000));
        QTest::keyClick(window->fileMenu, Qt::Key_Escape);
        EXPECT_TRUE(QTest::qWaitFor([this] { return !window->fileMenu->isVisible(); }, 2000));
    };
    const std::vector<std::function<void()>> focusOn = {
        focusMenuBar, [this] { controller->displayView->setFocus(); },
        [this] { controller->keyLabel->setFocus(); }};
    const char views[] = {'p', 'c', 's'};
    for (std::size_t i = 0; i < focusOn.size(); ++i) {
        focusOn[i]();
        ASSERT_NE(QApplication::focusWidget(), nullptr);
        SCOPED_TRACE(QApplication::focusWidget()->metaObject()->className());

        const bool tuning = Parameters::shared().tuning.value();
        type('u');
        EXPECT_NE(Parameters::shared().tuning.value(), tuning);
        // l is the loop button.
        const bool loop = controller->transport->playhead().loop();
        type('l');
        EXPECT_NE(controller->transport->playhead().loop(), loop);
        EXPECT_EQ(controller->transportBar->loopButton->isChecked(),
                  controller->transport->playhead().loop());
        const double whole = time.timeWidth;
        type('+');
        EXPECT_LT(time.timeWidth, whole);
        type('-');

        // "v" then a letter is the View menu's item itself.
        const int view = QStringLiteral("crapqs").indexOf(QLatin1Char(views[i]));
        QSignalSpy chosen(window->viewMenuItems[static_cast<std::size_t>(view)],
                          &QAction::triggered);
        type('v');
        type(views[i]);
        EXPECT_EQ(chosen.count(), 1);
        EXPECT_TRUE(window->viewMenuItems[static_cast<std::size_t>(view)]->isChecked());
        EXPECT_TRUE(controller->displayView->promptMessage().isEmpty());

        // "f" then "a" is Save As, as Ctrl+Shift+S is; the panel says which.
        QSignalSpy savedAs(window->fileSaveAsMenuItem, &QAction::triggered);
        type('f');
        type('a');
        key(Qt::Key_S, Qt::ControlModifier | Qt::ShiftModifier);
        EXPECT_EQ(savedAs.count(), 2);
        EXPECT_EQ(savePanels, static_cast<int>(2 * (i + 1)));
        EXPECT_EQ(savePanelTitle, QStringLiteral("Save As"));
    }
}

// The window fits a 1024 px screen and half of a 1920 px one with every control whole, and the
// level meter has room whenever it records.
TEST_F(WindowTest, aNarrowWindowKeepsEveryControlAndTheLevelMeterWhole)
{
    TransportBar &transport = *controller->transportBar;
    const QList<QWidget *> controls = {transport.rewindButton,
                                       transport.recordButton,
                                       transport.speedBox,
                                       transport.toneButton,
                                       controller->keyButton,
                                       controller->optionsButton,
                                       controller->zoom->hZoomInButton,
                                       controller->zoom->vToggleButton};
    const auto whole = [&](const char *when) {
        SCOPED_TRACE(when);
        EXPECT_LE(window->minimumSizeHint().width(), 960);
        for (QWidget *w : controls) {
            const QRect inWindow(w->mapTo(window, QPoint(0, 0)), w->size());
            EXPECT_TRUE(w->isVisible()) << w->toolTip().toStdString();
            // Not hidden behind its parents' edges either.
            EXPECT_EQ(w->visibleRegion().boundingRect(), w->rect()) << w->toolTip().toStdString();
            EXPECT_TRUE(window->rect().contains(inWindow)) << w->toolTip().toStdString();
            EXPECT_GE(w->width(), w->minimumSizeHint().width()) << w->toolTip().toStdString();
        }
        if (qEnvironmentVariableIsSet("QUORVAL_TEST_PICTURES"))
            window->grab().save(qEnvironmentVariable("QUORVAL_TEST_PICTURES") +
                                QStringLiteral("/window-%1.png").arg(window->width()));
    };
    const auto resizeTo = [this](int width) {
        window->resize(width, 600);
        return QTest::qWaitFor([&] { return window->width() == width; }, 5000);
    };
    for (const int width : {1024, 960}) {
        ASSERT_TRUE(resizeTo(width));
        QApplication::processEvents();
        whole("idle");
    }
    if (!test::soundServerPresent())
        return;
    document->newRecording();
    type('r');
    WAIT_FOR(Quorval::recording, 5000);
    for (const int width : {1100, 960}) {
        ASSERT_TRUE(resizeTo(width));
        WAIT_FOR(transport.levelMeter->isVisible() &&
                     transport.levelMeter->width() >= LevelMeter::kMinimumWidth,
                 5000);
        whole("recording");
    }
    controller->stopTransport();
}

TEST_F(WindowTest, zoomButtonsAndKeysFollowTheAxes)
{
    DisplayView *view = controller->displayView;
    // The time axis the display shows.
    HView &time = *controller->musicStream()->timeView;
    // Whole sound at first: nothing to zoom out to.
    WAIT_FOR(time.timeWidth > 0.0, 5000);
    WAIT_FOR(!view->canHScrollOut(), 5000);
    EXPECT_FALSE(controller->zoom->hZoomOutButton->isEnabled());
    EXPECT_EQ(controller->zoom->hToggleButton->toolTip(), QStringLiteral("Restore zoom"));
    const double whole = time.timeWidth;
    type('-');
    EXPECT_EQ(time.timeWidth, whole);

    type('+');
    EXPECT_LT(time.timeWidth, whole);
    WAIT_FOR(view->canHScrollOut(), 5000);
    EXPECT_TRUE(controller->zoom->hZoomOutButton->isEnabled());
    EXPECT_TRUE(controller->zoom->hToggleButton->isChecked());
    EXPECT_EQ(controller->zoom->hToggleButton->toolTip(), QStringLiteral("Zoom out full"));
    const double zoomed = time.timeWidth;
    type('-');
    EXPECT_GT(time.timeWidth, zoomed);

    // The toggle shows the whole, then brings the zoom back.
    type('+');
    const double before = time.timeWidth;
    QTest::mouseClick(controller->zoom->hToggleButton, Qt::LeftButton);
    EXPECT_EQ(time.timeWidth, whole);
    WAIT_FOR(!controller->zoom->hZoomOutButton->isEnabled(), 5000);
    QTest::mouseClick(controller->zoom->hToggleButton, Qt::LeftButton);
    EXPECT_DOUBLE_EQ(time.timeWidth, before);

    // Page Up narrows the band of notes; the vertical toggle follows.
    const double band = view->dataView->topY - view->dataView->bottomY;
    key(Qt::Key_PageUp);
    EXPECT_LT(view->dataView->topY - view->dataView->bottomY, band);
    WAIT_FOR(controller->zoom->vToggleButton->isChecked(), 5000);
    EXPECT_EQ(controller->zoom->vToggleButton->toolTip(), QStringLiteral("Zoom out full"));
    key(Qt::Key_PageDown);
    EXPECT_GT(view->dataView->topY - view->dataView->bottomY,
              band * 0.99 / Parameters::shared().zoomIncrement.value());
}

TEST_F(WindowTest, prefixKeysChooseViewsAndFileCommands)
{
    DisplayView *view = controller->displayView;
    type('v');
    EXPECT_TRUE(view->promptMessage().startsWith(QStringLiteral("View...")));
    type('p');
    EXPECT_TRUE(view->promptMessage().isEmpty());
    EXPECT_EQ(Parameters::shared().viewType.value(), QStringLiteral("Pitch"));
    QStringList checked;
    for (QAction *item : window->viewMenuItems) {
        if (item->isChecked())
            checked.append(item->text());
    }
    EXPECT_EQ(checked, QStringList{QStringLiteral("Pitch")});
    // Without the prefix, "s" chooses no view.
    type('s');
    EXPECT_EQ(Parameters::shared().viewType.value(), QStringLiteral("Pitch"));

    // The prompt goes by itself after a second.
    type('f');
    EXPECT_EQ(view->promptMessage(), QStringLiteral("File... New, Open, Save, saveAs"));
    WAIT_FOR(view->promptMessage().isEmpty(), 3000);
    // The prefix is still pending: "o" opens the panel, answered with a file.
    const QString other = dir.filePath(QStringLiteral("other.wav"));
    ASSERT_TRUE(QFile::copy(demoPath, other));
    openPath = other;
    type('o');
    EXPECT_EQ(openPanels, 1);
    EXPECT_EQ(title(), QStringLiteral("Quorval - other.wav"));
    // Without the prefix, "o" is the options dialog, not the panel.
    type('o');
    EXPECT_EQ(openPanels, 1);
    EXPECT_TRUE(delegate->optionsMenu->dialog().isVisible());
    delegate->optionsMenu->dialog().cancelButtonPushed();
}

TEST_F(WindowTest, messageDialogShowsLongTextsInAScrollingField)
{
    AskViewController shortOne(QStringLiteral("T"), QStringLiteral("short"), {.no = true});
    EXPECT_FALSE(shortOne.scrolls());
    EXPECT_EQ(shortOne.yesButton->text(), QStringLiteral("Yes"));
    EXPECT_TRUE(shortOne.cancelButton->isHidden());
    QString text;
    for (int i = 0; i < 40; ++i)
        text += QStringLiteral("line %1\n").arg(i);
    AskViewController longOne(QStringLiteral("T"), text, {});
    EXPECT_TRUE(longOne.scrolls());
    EXPECT_EQ(longOne.yesButton->text(), QStringLiteral("OK"));

    // Help without a page says so, through the dialog itself.
    longOne.helpTopic = QStringLiteral("NoSuchPage");
    longOne.helpButton->click();
    EXPECT_EQ(dialogs, QStringList{QStringLiteral("Help | Help not available")});
}

TEST_F(WindowTest, textsFromOutsideAreShownAsTheyStandNeverAsMarkup)
{
    const QString markup = QStringLiteral("<h1>CLICK YES</h1><img src=\"/etc/x.png\">");
    AskViewController direct(QStringLiteral("T"), markup, {});
    EXPECT_EQ(direct.textField->textFormat(), Qt::PlainText);
    EXPECT_EQ(direct.textField->text(), markup);

    // A file's name reaches the status bar, and the question asked before the window closes
    // (every dialog's text is plain, as above); cancel keeps the window open.
    const QString named = dir.filePath(QStringLiteral("<b>CLICK YES<b>.wav"));
    ASSERT_TRUE(QFile::copy(demoPath, named));
    ASSERT_TRUE(document->openFile(named));
    EXPECT_EQ(window->status->soundLabel->textFormat(), Qt::PlainText);
    EXPECT_TRUE(
        window->status->soundLabel->text().startsWith(QLatin1String("<b>CLICK YES<b>.wav")));
    controller->wavStream()->modified = true;
    answers = {Answer::cancel};
    EXPECT_FALSE(window->close());
    ASSERT_EQ(dialogs.size(), 1);
    EXPECT_TRUE(dialogs[0].contains(QLatin1String("<b>CLICK YES<b>.wav has been modified")));
}

TEST_F(WindowTest, helpUpdatesAndWarningsReachTheirWindows)
{
    HelpViewer &viewer = *delegate->helpViewer;
    EXPECT_FALSE(viewer.isVisible());
    window->helpMenu->actions().at(0)->trigger();
    EXPECT_TRUE(viewer.isVisible());
    // Whole on the screen, however small.
    EXPECT_TRUE(viewer.screen()->availableGeometry().contains(viewer.frameGeometry()))
        << viewer.frameGeometry().width() << "x" << viewer.frameGeometry().height() << " on "
        << viewer.screen()->availableGeometry().width();
    EXPECT_EQ(viewer.currentTopic(), QStringLiteral("GettingStarted"));
    key(Qt::Key_F1);
    EXPECT_EQ(viewer.currentTopic(), QStringLiteral("Manual"));

    // The options dialog's Help opens the page of the tab shown; a message's Help its topic.
    ParmViewController &options = delegate->optionsMenu->dialog();
    const int last = options.tabView()->count() - 1;
    options.tabView()->setCurrentIndex(last);
    options.helpButton()->click();
    EXPECT_NE(viewer.currentTopic(), QStringLiteral("Manual"));
    EXPECT_TRUE(viewer.currentTopic().endsWith(QStringLiteral("Tab")));
    AskViewController question(QStringLiteral("T"), QStringLiteral("q"), {.help = true});
    question.helpTopic = QStringLiteral("GettingStarted");
    question.helpButton->click();
    EXPECT_EQ(viewer.currentTopic(), QStringLiteral("GettingStarted"));
    EXPECT_TRUE(dialogs.isEmpty());

    // A warning from an analysis thread shows as the display's prompt.
    const QString warning = QStringLiteral("The file is shorter than its header says");
    std::thread([&] { showWarning(warning); }).join();
    WAIT_FOR(controller->displayView->promptMessage() == warning, 5000);

    // Nothing listens there: the check on request says so through the window's dialog.
    qputenv("QUORVAL_UPDATE_URL", "http://127.0.0.1:1/");
    dialogs.clear();
    window->checkForUpdatesMenuItem->trigger();
    WAIT_FOR(!dialogs.isEmpty(), 15000);
    EXPECT_TRUE(dialogs.front().contains(QStringLiteral("Can't check for updates: ")))
        << dialogs.front().toStdString();
}

TEST_F(WindowTest, deviationsAndDeveloperCommandsReportThroughTheDialog)
{
    delegate->reports->deviations();
    EXPECT_FALSE(window->showDeviationsMenuItem->isEnabled());
    WAIT_FOR(dialogs.size() == 1, 60000);
    EXPECT_TRUE(dialogs.front().startsWith(QStringLiteral("Deviations | Pitch = ")));
    EXPECT_TRUE(dialogs.front().contains(QStringLiteral("\nDeviation =  \u00b1")));
    EXPECT_FALSE(dialogs.front().contains(QStringLiteral("Coverage")));
    // The demo is played close to the notes; the figures are in cents too.
    EXPECT_LT(std::abs(figure(dialogs.front(), "Pitch")), 0.5);
    EXPECT_TRUE(dialogs.front().contains(QStringLiteral("In cents: ")));
    EXPECT_TRUE(dialogs.front().contains(QStringLiteral("Clear pitch: ")));
    EXPECT_TRUE(window->showDeviationsMenuItem->isEnabled());

    // Developer mode is reached from the Help menu while the Developer menu is hidden.
    EXPECT_FALSE(window->developerMenu->menuAction()->isVisible());
    window->helpDeveloperModeMenuItem->trigger();
    EXPECT_TRUE(window->developerMenu->menuAction()->isVisible());
    EXPECT_TRUE(window->developerModeMenuItem->isChecked());
    dialogs.clear();
    delegate->reports->deviations();
    WAIT_FOR(dialogs.size() == 1, 60000);
    // Most of it loud enough to count.
    EXPECT_GT(figure(dialogs.front(), "Coverage"), 0.3);
    window->developerModeMenuItem->trigger();
    EXPECT_FALSE(window->developerMenu->menuAction()->isVisible());
}

TEST_F(WindowTest, selectAllRecentFilesAndGeometryServeTheNextUse)
{
    // Select All takes the whole take, which Export Selection then writes.
    EXPECT_FALSE(window->exportSelectionMenuItem->isEnabled());
    window->selectAllSoundMenuItem->trigger();
    const HView &time = *controller->musicStream()->timeView;
    EXPECT_EQ(time.selectionStart, 0.0);
    EXPECT_DOUBLE_EQ(time.selectionEnd, controller->musicStream()->timeRange().duration);
    EXPECT_TRUE(window->exportSelectionMenuItem->isEnabled());

    // A file gone since leaves the recent files after its message, and the open sound stays.
    const QString gone = dir.filePath(QStringLiteral("gone.wav"));
    ASSERT_TRUE(QFile::copy(demoPath, gone));
    ASSERT_TRUE(document->openFile(gone));
    ASSERT_TRUE(document->openFile(demoPath));
    ASSERT_TRUE(QFile::remove(gone));
    ASSERT_EQ(delegate->recentFiles->paths(), (QStringList{demoPath, gone}));
    delegate->recentFiles->menu()->actions().at(1)->trigger();
    WAIT_FOR(!dialogs.isEmpty(), 10000);
    ASSERT_EQ(dialogs.size(), 1);
    EXPECT_TRUE(dialogs[0].contains(QStringLiteral("Can't read sound file")))
        << dialogs[0].toStdString();
    const QStringList expected{demoPath};
    EXPECT_EQ(delegate->recentFiles->paths(), expected);
    EXPECT_TRUE(title().endsWith(QStringLiteral("demo.wav"))) << title().toStdString();

    // The window's place and size come back at the next start.
    window->setGeometry(60, 70, 900, 560);
    const QSize size = window->size();
    ASSERT_TRUE(window->close());
    launch(std::nullopt);
    EXPECT_EQ(window->size(), size);
}

TEST_F(WindowTest, optionsDialogListsTheInputsTheServerOffers)
{
    ParmViewController &options = delegate->optionsMenu->dialog();
    auto *box = qobject_cast<QComboBox *>(options.control(QStringLiteral("Input device")));
    ASSERT_NE(box, nullptr);
    const auto items = [box] {
        QStringList texts;
        for (int i = 0; i < box->count(); ++i)
            texts.append(box->itemText(i));
        return texts;
    };
    QStringList expected{QStringLiteral("Default")};
    for (const QString &name : SoundDevices::inputNames())
        if (!expected.contains(name))
            expected.append(name);
    EXPECT_EQ(items(), expected);
    if (test::soundServerPresent()) {
        EXPECT_TRUE(expected.contains(QStringLiteral("QuorvalInput")));
    }

    // A chosen input that is unplugged stays listed, so the dialog shows what is in force.
    Parameters &parameters = Parameters::shared();
    ASSERT_TRUE(parameters.inputDevice.setFromText(QStringLiteral("Unplugged Mic")));
    parameters.inputDevice.offerDevices(SoundDevices::inputNames());
    EXPECT_EQ(items(), expected + QStringList{QStringLiteral("Unplugged Mic")});
    parameters.inputDevice.resetToDefault();
}

// A recording a crash left is offered at start-up; recovered, it is shown unsaved, and its
// crash copy goes once it is saved.
TEST_F(WindowTest, aRecordingACrashLeftIsOfferedAtTheNextStart)
{
    const QString orphan = leaveOrphan();
    dialogs.clear();
    launch(demoPath);
    ASSERT_EQ(dialogs.size(), 1);
    EXPECT_TRUE(dialogs[0].startsWith(QStringLiteral("Recover Recording | ")))
        << dialogs[0].toStdString();
    EXPECT_TRUE(title().contains(QStringLiteral("Recovered Recording"))) << title().toStdString();
    savePath = dir.filePath(QStringLiteral("rescued.wav"));
    document->save();
    EXPECT_TRUE(QFileInfo::exists(*savePath));
    EXPECT_FALSE(QFileInfo::exists(orphan));
}

} // namespace
} // namespace quorval
