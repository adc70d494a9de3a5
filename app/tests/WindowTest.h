#pragma once

#include "app/AppDelegate.h"
#include "app/AskViewController.h"
#include "app/MainView.h"
#include "app/MainViewController.h"
#include "app/MainWindow.h"
#include "app/SoundDocument.h"
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
// answered by the test: the answers queued in `answers` in order (yes when none is left), each
// dialog recorded as "title | text", with " | detail" when it has one. File panels answer with
// openPath and savePath, counting how often they were asked.
class WindowTest : public StoreTest
{
protected:
    void SetUp() override
    {
        StoreTest::SetUp();
        ASSERT_TRUE(dir.isValid());
        demoPath = dir.filePath(QStringLiteral("demo.wav"));
        ASSERT_TRUE(QFile::copy(QStringLiteral(QUORVAL_DEMO_WAV), demoPath));
        previousResponder = AskViewController::setResponder([this](const AskViewController &d) {
            dialogs.append(d.windowTitle() + QStringLiteral(" | ") + d.text() +
                           (d.detail().isEmpty() ? QString() : QStringLiteral(" | ") + d.detail()));
            if (answers.empty())
                return AskViewController::Answer::yes;
            const AskViewController::Answer answer = answers.front();
            answers.pop_front();
            return answer;
        });
        launch(demoPath);
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
        SoundDocument::Panels panels;
        panels.chooseFileToOpen = [this] {
            ++openPanels;
            return openPath;
        };
        panels.chooseFileToSave = [this](const QString &, const QString &title) {
            ++savePanels;
            savePanelTitle = title;
            return savePath;
        };
        delegate = std::make_unique<AppDelegate>(Parameters::shared(), std::move(panels));
        delegate->initialOpenFilePath = initial;
        ASSERT_TRUE(delegate->applicationDidFinishLaunching());
        controller = delegate->mainViewController;
        document = delegate->document;
        window = delegate->window;
        QApplication::setActiveWindow(window);
        ASSERT_TRUE(
            QTest::qWaitFor([this] { return QApplication::activeWindow() == window; }, 5000));
    }

    void TearDown() override
    {
        if (auto wav = controller ? controller->wavStream() : nullptr)
            wav->modified = false;
        delegate.reset();
        AskViewController::setResponder(previousResponder);
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

    QTemporaryDir dir;
    QString demoPath;
    std::unique_ptr<AppDelegate> delegate;
    MainViewController *controller = nullptr;
    SoundDocument *document = nullptr;
    MainWindow *window = nullptr;
    QString savePanelTitle;
    std::deque<AskViewController::Answer> answers;
    QStringList dialogs;
    std::optional<QString> openPath;
    std::optional<QString> savePath;
    int openPanels = 0;
    int savePanels = 0;

private:
    AskViewController::Responder previousResponder;
};

} // namespace quorval
