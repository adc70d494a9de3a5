#pragma once

#include "app/AppDelegate.h"
#include "app/AskViewController.h"
#include "app/MainView.h"
#include "app/MainViewController.h"
#include "app/MainWindow.h"
#include "app/SoundDocument.h"
#include "app/StatusLine.h"
#include "app/tests/Support.h"
#include "options/Parameters.h"
#include "options/tests/support/OptionsTestStore.h"
#include "streams/MusicStream.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <QApplication>
#include <QFile>
#include <QMainWindow>
#include <QStringList>
#include <QTemporaryDir>
#include <QTest>

#include <deque>
#include <memory>

// Runs the event loop until cond holds; fails the test after timeoutMs.
#define WAIT_FOR(cond, timeoutMs)                                                                  \
    ASSERT_TRUE(QTest::qWaitFor([&] { return static_cast<bool>(cond); }, timeoutMs)) << #cond

namespace quorval {

// The real window, launched offscreen on a copy of the demo sound. Every message dialog is
// answered from `answers` and recorded in `dialogs`, and every file panel by ScriptedPanels.
class WindowTest : public DemoCopyTest
{
protected:
    void openCopy() override
    {
        launch(demoPath);
        if (HasFatalFailure())
            return;
        ASSERT_TRUE(controller->wavStream());
        controller->wavStream()->waitForCopy();
    }

    // Starts the window afresh on initial (or a new recording), its panels answered by the
    // test, and makes it the active window, as a user's is.
    void launch(const std::optional<QString> &initial)
    {
        if (auto wav = controller ? controller->wavStream() : nullptr)
            wav->modified = false;
        delegate.reset();
        controller = nullptr;
        delegate = std::make_unique<AppDelegate>(Parameters::shared(), panels());
        delegate->initialOpenFilePath = initial;
        ASSERT_TRUE(delegate->applicationDidFinishLaunching())
            << "the window did not launch: " << dialogs.join(QStringLiteral("; ")).toStdString();
        controller = delegate->mainViewController;
        document = delegate->document;
        window = delegate->window;
        QApplication::setActiveWindow(window);
        ASSERT_TRUE(
            QTest::qWaitFor([this] { return QApplication::activeWindow() == window; }, 5000))
            << "the window did not become active";
    }

    void TearDown() override
    {
        if (auto wav = controller ? controller->wavStream() : nullptr)
            wav->modified = false;
        delegate.reset();
        Quorval::setDeveloperMode(false);
    }

    // Presses a key on the window as a user does, on the widget with the focus.
    void key(Qt::Key k, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QTest::keyClick(focused(), k, modifiers);
    }
    void type(char c) { QTest::keyClick(focused(), c); }
    [[nodiscard]] QWidget *focused() const
    {
        QWidget *focus = QApplication::focusWidget();
        return focus ? focus : delegate->mainView;
    }

    [[nodiscard]] QString title() const { return window->windowTitle(); }

    std::unique_ptr<AppDelegate> delegate;
    MainViewController *controller = nullptr;
    SoundDocument *document = nullptr;
    MainWindow *window = nullptr;
    ScriptedAnswers script;
    std::deque<AskViewController::Answer> &answers = script.answers;
    QStringList &dialogs = script.dialogs;
};

} // namespace quorval
