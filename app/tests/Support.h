#pragma once

#include "analysis/tests/support/EndedProcess.h"
#include "app/AskViewController.h"
#include "app/SoundDocument.h"
#include "options/tests/support/OptionsTestStore.h"
#include "streams/WorkingFiles.h"

#include <QFile>
#include <QStringList>
#include <QTemporaryDir>
#include <QUuid>

#include <deque>
#include <optional>

namespace quorval {

// Answers every message dialog while it lives: with the answers queued in `answers`, in order
// (yes when none is left), recording each dialog as "title | text", with " | detail" when it
// has one.
class ScriptedAnswers
{
public:
    ScriptedAnswers()
        : previous(AskViewController::setResponder([this](const AskViewController &d) {
              dialogs.append(
                  d.windowTitle() + QStringLiteral(" | ") + d.text() +
                  (d.detail().isEmpty() ? QString() : QStringLiteral(" | ") + d.detail()));
              if (answers.empty())
                  return AskViewController::Answer::yes;
              const AskViewController::Answer answer = answers.front();
              answers.pop_front();
              return answer;
          }))
    {
    }
    ~ScriptedAnswers() { AskViewController::setResponder(previous); }
    ScriptedAnswers(const ScriptedAnswers &) = delete;
    ScriptedAnswers &operator=(const ScriptedAnswers &) = delete;

    std::deque<AskViewController::Answer> answers;
    QStringList dialogs;

private:
    AskViewController::Responder previous;
};

// File panels that answer openPath and savePath, counting how often they were asked.
class ScriptedPanels
{
public:
    [[nodiscard]] SoundDocument::Panels panels()
    {
        SoundDocument::Panels scripted;
        scripted.chooseFileToOpen = [this] {
            ++openPanels;
            return openPath;
        };
        scripted.chooseFileToSave = [this](const QString &, const QString &title) {
            ++savePanels;
            savePanelTitle = title;
            return savePath;
        };
        return scripted;
    }

    std::optional<QString> openPath;
    std::optional<QString> savePath;
    QString savePanelTitle;
    int openPanels = 0;
    int savePanels = 0;
};

// A test on a copy of the demo sound (16-bit mono at 44100 Hz) in a folder of its own, with
// scripted file panels. openCopy() opens it, once the copy is made.
class DemoCopyTest : public StoreTest, protected ScriptedPanels
{
protected:
    void SetUp() override
    {
        StoreTest::SetUp();
        ASSERT_TRUE(dir.isValid());
        demoPath = dir.filePath(QStringLiteral("demo.wav"));
        ASSERT_TRUE(QFile::copy(QStringLiteral(QUORVAL_DEMO_WAV), demoPath));
        openCopy();
    }

    virtual void openCopy() = 0;

    QTemporaryDir dir;
    QString demoPath;
};

// A recording whose process is gone, as a crash leaves it: the demo stands in for it.
inline QString leaveOrphan()
{
    const QString path = QString::fromStdString(WorkingFiles::folder()) +
                         QStringLiteral("/quorval-recording-%1-%2.wav")
                             .arg(testsignals::endedProcess())
                             .arg(QUuid::createUuid().toString(QUuid::WithoutBraces));
    EXPECT_TRUE(QFile::copy(QStringLiteral(QUORVAL_DEMO_WAV), path));
    return path;
}

} // namespace quorval
