#pragma once

#include "app/AppDelegate.h"
#include "app/AskViewController.h"
#include "app/MainView.h"
#include "app/MainViewController.h"
#include "options/Parameters.h"
#include "options/tests/support/OptionsTestStore.h"
#include "streams/MusicStream.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

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
// dialog recorded as "title | text". File panels answer with openPath and savePath, counting
// how often they were asked.
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
            dialogs.append(d.windowTitle() + QStringLiteral(" | ") + d.text());
            if (answers.empty())
                return AskViewController::Answer::yes;
            const AskViewController::Answer answer = answers.front();
            answers.pop_front();
            return answer;
        });
        AppDelegate::Panels panels;
        panels.chooseFileToOpen = [this] {
            ++openPanels;
            return openPath;
        };
        panels.chooseFileToSave = [this](const QString &) {
            ++savePanels;
            return savePath;
        };
        delegate = std::make_unique<AppDelegate>(Parameters::shared(), std::move(panels));
        delegate->initialOpenFilePath = demoPath;
        ASSERT_TRUE(delegate->applicationDidFinishLaunching());
        controller = delegate->mainViewController;
        ASSERT_TRUE(controller->wavStream());
        controller->wavStream()->waitForCopy();
    }

    void TearDown() override
    {
        if (auto wav = controller ? controller->wavStream() : nullptr)
            wav->modified = false;
        delegate.reset();
        AskViewController::setResponder(previousResponder);
        Quorval::loop = false;
        Quorval::setDeveloperMode(false);
    }

    // Presses a key on the window as a user does.
    void key(Qt::Key k, const QString &text = QString(),
             Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QTest::sendKeyEvent(QTest::Click, delegate->mainView, k, text, modifiers);
    }
    void type(char c) { key(Qt::Key_unknown, QString(QLatin1Char(c))); }

    [[nodiscard]] QString title() const { return delegate->window->windowTitle(); }

    QTemporaryDir dir;
    QString demoPath;
    std::unique_ptr<AppDelegate> delegate;
    MainViewController *controller = nullptr;
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
