#include "analysis/tests/support/EndedProcess.h"
#include "app/CrashRecovery.h"
#include "app/LevelMeter.h"
#include "app/RecentFiles.h"
#include "app/ReportCommands.h"
#include "app/Transport.h"
#include "app/TransportBar.h"
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
#include <QScreen>
#include <QSignalSpy>
#include <QTabWidget>
#include <QToolButton>
#include <QUuid>

#include <cmath>
#include <csignal>
#include <cstring>
#include <functional>
#include <optional>
#include <thread>
#include <vector>

namespace quorval {
namespace {

using Answer = AskViewController::Answer;

const QString kSaveQuestion =
    QStringLiteral("Save modified file? | demo.wav has been modified.\nDo you want to save it?");

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
        const bool loop = controller->transport->loop();
        type('l');
        EXPECT_NE(controller->transport->loop(), loop);
        EXPECT_EQ(controller->transportBar->loopButton->isChecked(), controller->transport->loop());
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
    const QList<QWidget *> controls = {transport.rewindButton,    transport.recordButton,
                                       transport.speedBox,        transport.toneButton,
                                       controller->keyButton,     controller->optionsButton,
                                       controller->hZoomInButton, controller->vToggleButton};
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
    EXPECT_FALSE(controller->hZoomOutButton->isEnabled());
    EXPECT_EQ(controller->hToggleButton->toolTip(), QStringLiteral("Restore zoom"));
    const double whole = time.timeWidth;
    type('-');
    EXPECT_EQ(time.timeWidth, whole);

    type('+');
    EXPECT_LT(time.timeWidth, whole);
    WAIT_FOR(view->canHScrollOut(), 5000);
    EXPECT_TRUE(controller->hZoomOutButton->isEnabled());
    EXPECT_TRUE(controller->hToggleButton->isChecked());
    EXPECT_EQ(controller->hToggleButton->toolTip(), QStringLiteral("Zoom out full"));
    const double zoomed = time.timeWidth;
    type('-');
    EXPECT_GT(time.timeWidth, zoomed);

    // The toggle shows the whole, then brings the zoom back.
    type('+');
    const double before = time.timeWidth;
    QTest::mouseClick(controller->hToggleButton, Qt::LeftButton);
    EXPECT_EQ(time.timeWidth, whole);
    WAIT_FOR(!controller->hZoomOutButton->isEnabled(), 5000);
    QTest::mouseClick(controller->hToggleButton, Qt::LeftButton);
    EXPECT_DOUBLE_EQ(time.timeWidth, before);

    // Page Up narrows the band of notes; the vertical toggle follows.
    const double band = view->dataView->topY - view->dataView->bottomY;
    key(Qt::Key_PageUp);
    EXPECT_LT(view->dataView->topY - view->dataView->bottomY, band);
    WAIT_FOR(controller->vToggleButton->isChecked(), 5000);
    EXPECT_EQ(controller->vToggleButton->toolTip(), QStringLiteral("Zoom out full"));
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
    const QList<QAction *> recent = delegate->recentFiles->menu()->actions();
    ASSERT_EQ(recent.size(), 2);
    EXPECT_EQ(recent.front()->text(), QStringLiteral("other.wav"));
    EXPECT_EQ(recent.back()->text(), QStringLiteral("demo.wav"));
    // Without the prefix, "o" is the options dialog, not the panel.
    type('o');
    EXPECT_EQ(openPanels, 1);
    EXPECT_TRUE(delegate->optionsMenu->dialog().isVisible());
    delegate->optionsMenu->dialog().cancelButtonPushed();
}

TEST_F(WindowTest, modifiedSoundCheckFollowsEachAnswer)
{
    std::shared_ptr<WavStream> demo = controller->wavStream();
    demo->modified = true;
    controller->refreshControls();
    EXPECT_EQ(title(), QStringLiteral("Quorval - demo.wav *"));

    // Cancel: New stops, the sound stays.
    answers = {Answer::cancel};
    document->newRecording();
    EXPECT_EQ(dialogs, QStringList{kSaveQuestion});
    EXPECT_EQ(controller->wavStream(), demo);

    // Yes on Open: an opened file is never written over, so the save panel asks where; then
    // the open panel comes.
    dialogs.clear();
    const QString target = dir.filePath(QStringLiteral("saved.wav"));
    savePath = target;
    openPath = std::nullopt;
    answers = {Answer::yes};
    document->open();
    EXPECT_EQ(dialogs, QStringList{kSaveQuestion});
    EXPECT_EQ(savePanels, 1);
    EXPECT_EQ(openPanels, 1);
    EXPECT_TRUE(QFileInfo::exists(target));
    EXPECT_FALSE(demo->modified);
    EXPECT_EQ(title(), QStringLiteral("Quorval - saved.wav"));

    // No on Quit: the window may close without saving; cancel keeps it open.
    QSignalSpy terminated(delegate.get(), &AppDelegate::terminate);
    demo->modified = true;
    dialogs.clear();
    answers = {Answer::cancel};
    EXPECT_FALSE(window->close());
    EXPECT_EQ(terminated.count(), 0);
    EXPECT_TRUE(demo->modified);
    answers = {Answer::no};
    EXPECT_TRUE(window->close());
    EXPECT_EQ(terminated.count(), 1);
    EXPECT_EQ(dialogs.size(), 2);
    EXPECT_EQ(savePanels, 1);

    // With the check off nothing is asked.
    window->show();
    demo->modified = true;
    ASSERT_TRUE(Parameters::shared().checkForModifiedFiles.setValue(false));
    dialogs.clear();
    document->newRecording();
    EXPECT_TRUE(dialogs.isEmpty());
    EXPECT_EQ(title(), QStringLiteral("Quorval - New File"));
}

TEST_F(WindowTest, saveAsWhereNothingCanBeWrittenLosesNothing)
{
    std::shared_ptr<WavStream> demo = controller->wavStream();
    demo->modified = true;
    const QString regular = dir.filePath(QStringLiteral("plain"));
    {
        QFile file(regular);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("not a folder");
    }
    savePath = regular + QStringLiteral("/sound.wav");
    type('f');
    type('a');
    EXPECT_EQ(dialogs, QStringList{QStringLiteral(" | Can't save sound file")});
    EXPECT_TRUE(demo->modified);
    EXPECT_TRUE(title().endsWith(QStringLiteral(" *")));
    EXPECT_FALSE(QFileInfo::exists(*savePath));

    // Saved elsewhere, the sound keeps every frame and loses its mark.
    savePath = dir.filePath(QStringLiteral("kept.wav"));
    key(Qt::Key_S, Qt::ControlModifier);
    EXPECT_EQ(savePanels, 2);
    EXPECT_FALSE(demo->modified);
    EXPECT_EQ(title(), QStringLiteral("Quorval - kept.wav"));
    EXPECT_EQ(QFileInfo(*savePath).size(), QFileInfo(demoPath).size());
    // The file opened was never written.
    QFile original(demoPath);
    QFile bundled(QStringLiteral(QUORVAL_DEMO_WAV));
    ASSERT_TRUE(original.open(QIODevice::ReadOnly) && bundled.open(QIODevice::ReadOnly));
    EXPECT_EQ(original.readAll(), bundled.readAll());
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

    // A file's name reaches the question about it and the status bar.
    const QString named = dir.filePath(QStringLiteral("<b>CLICK YES<b>.wav"));
    ASSERT_TRUE(QFile::copy(demoPath, named));
    ASSERT_TRUE(document->openFile(named));
    EXPECT_EQ(window->soundLabel->textFormat(), Qt::PlainText);
    EXPECT_TRUE(window->soundLabel->text().startsWith(QLatin1String("<b>CLICK YES<b>.wav")));
    controller->wavStream()->modified = true;
    std::optional<Qt::TextFormat> shownAs;
    const AskViewController::Responder fixture =
        AskViewController::setResponder([&](const AskViewController &dialog) {
            if (dialog.text().startsWith(QLatin1String("<b>CLICK YES<b>.wav has been modified")))
                shownAs = dialog.textField->textFormat();
            return AskViewController::Answer::cancel;
        });
    document->newRecording();
    AskViewController::setResponder(fixture);
    EXPECT_EQ(shownAs, Qt::PlainText);
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

    // Nothing listens there: the check on request says why it could not be made.
    qputenv("QUORVAL_UPDATE_URL", "http://127.0.0.1:1/");
    std::optional<UpdateChecker::Result> result;
    QObject::connect(delegate->updateChecker, &UpdateChecker::finished,
                     [&](const UpdateChecker::Result &r) { result = r; });
    dialogs.clear();
    window->checkForUpdatesMenuItem->trigger();
    WAIT_FOR(result && !dialogs.isEmpty(), 15000);
    EXPECT_EQ(result->outcome, UpdateChecker::Outcome::Failed);
    EXPECT_FALSE(result->reason.isEmpty());
    ASSERT_EQ(dialogs.size(), 1);
    EXPECT_TRUE(dialogs.front().contains(result->reason)) << dialogs.front().toStdString();
}

TEST_F(WindowTest, exportSelectionWritesExactlyTheSelectedFrames)
{
    EXPECT_FALSE(window->exportSelectionMenuItem->isEnabled());
    HView &time = *controller->musicStream()->timeView;
    time.selectionStart = 1.0;
    time.selectionEnd = 3.5;
    window->refreshMenus();
    EXPECT_TRUE(window->exportSelectionMenuItem->isEnabled());

    savePath = dir.filePath(QStringLiteral("part.wav"));
    document->exportSelection();
    EXPECT_TRUE(dialogs.isEmpty());
    QFile part(*savePath);
    QFile whole(demoPath);
    ASSERT_TRUE(part.open(QIODevice::ReadOnly) && whole.open(QIODevice::ReadOnly));
    const QByteArray exported = part.readAll();
    const QByteArray original = whole.readAll();
    // 16-bit mono at 44100 Hz: 2.5 s of frames after a 44-byte header.
    ASSERT_EQ(exported.size(), 44 + 2 * 110250);
    EXPECT_EQ(exported.mid(44), original.mid(44 + 2 * 44100, 2 * 110250));
    EXPECT_EQ(exported.mid(22, 14), original.mid(22, 14)); // channels, rate, frame size, bits

    savePath = dir.filePath(QStringLiteral("part.wav/inside.wav"));
    document->exportSelection();
    EXPECT_EQ(dialogs, QStringList{QStringLiteral(" | Can't save sound file")});
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files).size(), 2);
    EXPECT_EQ(savePanelTitle, QStringLiteral("Export Selection"));

    // Written as Save As writes: a link keeps naming its file, which takes the selection, and a
    // file of the user's that happens to be called NAME.partial is left alone.
    const auto write = [](const QString &path, const QByteArray &bytes) {
        QFile file(path);
        return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
    };
    const auto read = [](const QString &path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    };
    const QString real = dir.filePath(QStringLiteral("real.wav"));
    const QString link = dir.filePath(QStringLiteral("link.wav"));
    ASSERT_TRUE(write(real, "an older take"));
    ASSERT_TRUE(QFile::link(real, link));
    ASSERT_TRUE(write(link + QStringLiteral(".partial"), "the user's own"));
    dialogs.clear();
    savePath = link;
    document->exportSelection();
    EXPECT_TRUE(dialogs.isEmpty()) << dialogs.join('\n').toStdString();
    EXPECT_TRUE(QFileInfo(link).isSymLink());
    EXPECT_EQ(read(real), exported);
    EXPECT_EQ(read(link + QStringLiteral(".partial")), QByteArray("the user's own"));
}

TEST_F(WindowTest, deviationsAndDeveloperCommandsReportThroughTheDialog)
{
    delegate->reports->deviations();
    EXPECT_FALSE(window->showDeviationsMenuItem->isEnabled());
    WAIT_FOR(dialogs.size() == 1, 60000);
    EXPECT_TRUE(dialogs.front().startsWith(QStringLiteral("Deviations | Pitch = ")));
    EXPECT_TRUE(dialogs.front().contains(QStringLiteral("\nDeviation =  \u00b1")));
    EXPECT_FALSE(dialogs.front().contains(QStringLiteral("Coverage")));
    ASSERT_TRUE(delegate->reports->lastDeviations().has_value());
    // The demo is played close to the notes, most of it loud enough to count.
    EXPECT_LT(std::abs(delegate->reports->lastDeviations()->pitch), 0.5);
    EXPECT_GT(delegate->reports->lastDeviations()->coverage, 0.3);
    EXPECT_TRUE(window->showDeviationsMenuItem->isEnabled());

    // Developer mode is reached from the Help menu while the Developer menu is hidden.
    EXPECT_FALSE(window->developerMenu->menuAction()->isVisible());
    window->helpDeveloperModeMenuItem->trigger();
    EXPECT_TRUE(window->developerMenu->menuAction()->isVisible());
    EXPECT_TRUE(window->developerModeMenuItem->isChecked());
    dialogs.clear();
    delegate->reports->deviations();
    WAIT_FOR(dialogs.size() == 1, 60000);
    EXPECT_TRUE(dialogs.front().contains(QStringLiteral("\nCoverage = ")));
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

    // The last ten files opened, newest first; opening one again moves it up.
    QStringList paths;
    for (int i = 0; i < 12; ++i) {
        paths.append(dir.filePath(QStringLiteral("take%1.wav").arg(i)));
        ASSERT_TRUE(QFile::copy(demoPath, paths.last()));
        ASSERT_TRUE(document->openFile(paths.last()));
    }
    ASSERT_TRUE(document->openFile(paths[5]));
    const auto recentNames = [this] {
        QStringList names;
        for (const QAction *item : delegate->recentFiles->menu()->actions())
            names.append(item->text());
        return names;
    };
    QStringList expected{QStringLiteral("take5.wav")};
    for (int i = 11; i >= 2; --i)
        if (i != 5)
            expected.append(QStringLiteral("take%1.wav").arg(i));
    EXPECT_EQ(recentNames(), expected);

    // A file gone since leaves the list after its message, and the open sound stays.
    ASSERT_TRUE(QFile::remove(paths[9]));
    QAction *gone = delegate->recentFiles->menu()->actions().at(expected.indexOf("take9.wav"));
    gone->trigger();
    WAIT_FOR(!dialogs.isEmpty(), 10000);
    ASSERT_EQ(dialogs.size(), 1);
    EXPECT_TRUE(dialogs[0].contains(QStringLiteral("Can't read sound file")))
        << dialogs[0].toStdString();
    expected.removeAll(QStringLiteral("take9.wav"));
    EXPECT_EQ(recentNames(), expected);
    EXPECT_TRUE(title().endsWith(QStringLiteral("take5.wav"))) << title().toStdString();

    // The window's place and size come back at the next start, with the list.
    window->setGeometry(60, 70, 900, 560);
    const QSize size = window->size();
    ASSERT_TRUE(window->close());
    launch(std::nullopt);
    EXPECT_EQ(window->size(), size);
    EXPECT_EQ(recentNames(), expected);
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

TEST_F(WindowTest, aRecordingACrashLeftIsRecoveredDiscardedOrKeptAsTheUserSays)
{
    // A recording whose process is gone: the demo stands in for it (16-bit mono at 44100 Hz).
    const auto leaveOrphan = [] {
        const QString path = QString::fromStdString(WorkingFiles::folder()) +
                             QStringLiteral("/quorval-recording-%1-%2.wav")
                                 .arg(testsignals::endedProcess())
                                 .arg(QUuid::createUuid().toString(QUuid::WithoutBraces));
        EXPECT_TRUE(QFile::copy(QStringLiteral(QUORVAL_DEMO_WAV), path));
        return path;
    };
    const auto relaunch = [this](std::deque<AskViewController::Answer> given) {
        dialogs.clear();
        answers = std::move(given);
        launch(demoPath);
    };
    // The first is a real recording, cut off by SIGKILL while it ran (without a sound server,
    // the demo stands in).
    QString orphan;
    if (test::soundServerPresent()) {
        const QString cut = dir.filePath(QStringLiteral("cut.wav"));
        test::ChildProcess recording(QStringLiteral(QUORVAL_CLI_PATH),
                                     {QStringLiteral("record"), cut});
        ASSERT_TRUE(recording.started());
        WAIT_FOR(QFileInfo(cut).size() > 44 + 2 * 44100, 20000);
        const pid_t owner = recording.id();
        ::kill(owner, SIGKILL);
        (void)recording.finish(20000);
        orphan = QString::fromStdString(WorkingFiles::folder()) +
                 QStringLiteral("/quorval-recording-%1-%2.wav")
                     .arg(owner)
                     .arg(QUuid::createUuid().toString(QUuid::WithoutBraces));
        ASSERT_TRUE(QFile::rename(cut, orphan));
    } else {
        orphan = leaveOrphan();
    }

    // Later: kept, and the file asked for opens as usual.
    relaunch({AskViewController::Answer::cancel});
    ASSERT_EQ(dialogs.size(), 1);
    EXPECT_TRUE(dialogs[0].startsWith(QStringLiteral("Recover Recording | Quorval ended before")))
        << dialogs[0].toStdString();
    EXPECT_TRUE(dialogs[0].contains(QStringLiteral(" of sound, recorded until ")))
        << dialogs[0].toStdString();
    EXPECT_TRUE(QFileInfo::exists(orphan));
    EXPECT_TRUE(title().endsWith(QStringLiteral("demo.wav"))) << title().toStdString();

    // Recover: shown as an unsaved sound, saved where the user says, then the crash copy goes.
    relaunch({AskViewController::Answer::yes});
    ASSERT_EQ(dialogs.size(), 1);
    const std::shared_ptr<WavStream> recovered = controller->wavStream();
    ASSERT_TRUE(recovered);
    EXPECT_TRUE(recovered->modified);
    EXPECT_FALSE(recovered->saveURL);
    EXPECT_TRUE(title().contains(QStringLiteral("Recovered Recording"))) << title().toStdString();
    QFile crashCopy(orphan);
    ASSERT_TRUE(crashCopy.open(QIODevice::ReadOnly));
    const QByteArray recorded = crashCopy.readAll();
    crashCopy.close();
    savePath = dir.filePath(QStringLiteral("rescued.wav"));
    document->save();
    QFile rescued(*savePath);
    ASSERT_TRUE(rescued.open(QIODevice::ReadOnly));
    // Every frame the cut-off header announces (a kill mid-write may leave a part-frame more).
    quint32 announced = 0;
    std::memcpy(&announced, recorded.constData() + 40, 4);
    const QByteArray saved = rescued.readAll().mid(44);
    EXPECT_GT(announced, 0u);
    EXPECT_EQ(saved, recorded.mid(44, static_cast<qsizetype>(announced)));
    EXPECT_FALSE(QFileInfo::exists(orphan));

    // Discard: gone for good; nothing left to offer at the next start.
    const QString another = leaveOrphan();
    relaunch({AskViewController::Answer::no});
    EXPECT_FALSE(QFileInfo::exists(another));
    relaunch({});
    EXPECT_TRUE(dialogs.isEmpty()) << dialogs.join('\n').toStdString();

    // Many at once are not many questions at each start: a few, each saying how many wait.
    QStringList many;
    for (int i = 0; i < 10; ++i)
        many.append(leaveOrphan());
    relaunch(std::deque<AskViewController::Answer>(10, AskViewController::Answer::cancel));
    ASSERT_EQ(dialogs.size(), CrashRecovery::kRecoveryOffers);
    EXPECT_TRUE(dialogs[0].contains(QStringLiteral("1 of 10 recordings")))
        << dialogs[0].toStdString();
    for (const QString &path : many)
        EXPECT_TRUE(QFile::remove(path)) << path.toStdString();
}

TEST_F(WindowTest, aTakeTheUserDiscardsIsGoneAtOnceAndAnEmptyOneIsNeverKept)
{
    // A take with sound in it, as the recorder appends it.
    const auto recordTake = [this] {
        document->newRecording();
        const std::shared_ptr<WavStream> take = controller->wavStream();
        EXPECT_TRUE(take && take->appendSamples(std::vector<std::int16_t>(4410, 1000)));
        return take ? QFile::decodeName(take->fileURL.c_str()) : QString();
    };
    const auto gone = [](const QString &path) {
        return QTest::qWaitFor([&path] { return !QFileInfo::exists(path); }, 10000);
    };

    // "No" before New, and before Open: removed as soon as another sound takes its place.
    QString take = recordTake();
    ASSERT_TRUE(QFileInfo::exists(take));
    answers = {AskViewController::Answer::no};
    document->newRecording();
    EXPECT_TRUE(gone(take)) << take.toStdString();
    take = recordTake();
    answers = {AskViewController::Answer::no};
    openPath = demoPath;
    document->open();
    EXPECT_TRUE(gone(take)) << take.toStdString();

    // "Cancel" keeps it, shown and on disk.
    take = recordTake();
    answers = {AskViewController::Answer::cancel};
    document->newRecording();
    EXPECT_EQ(QFile::decodeName(controller->wavStream()->fileURL.c_str()), take);
    EXPECT_TRUE(QFileInfo::exists(take));

    // A new recording with nothing in it goes when replaced, even once marked as changed.
    answers = {AskViewController::Answer::no};
    document->newRecording();
    std::shared_ptr<WavStream> empty = controller->wavStream();
    ASSERT_TRUE(empty);
    const QString emptyPath = QFile::decodeName(empty->fileURL.c_str());
    empty->modified = true;
    empty.reset();
    ASSERT_TRUE(document->openFile(demoPath));
    EXPECT_TRUE(gone(emptyPath)) << emptyPath.toStdString();
}

} // namespace
} // namespace quorval
