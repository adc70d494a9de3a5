#pragma once

#include "options/DeveloperMode.h"
#include "options/Messages.h"
#include "options/tests/support/OptionsTestStore.h"

#include <QLineEdit>
#include <QStringList>
#include <QTest>

namespace quorval {

// A widget test from an empty store, developer mode off, with the messages shown collected as
// "title | text" instead of printed.
class DialogTest : public StoreTest
{
protected:
    void SetUp() override
    {
        StoreTest::SetUp();
        setDeveloperMode(false);
        previous_ =
            setMessageHandler([this](const QString &title, const QString &text, const QString &) {
                messages.append(title + QStringLiteral(" | ") + text);
            });
    }
    void TearDown() override
    {
        setMessageHandler(previous_);
        setDeveloperMode(false);
    }

    QStringList messages;

private:
    MessageHandler previous_;
};

// Replaces the text of a line edit (or an editable combo box's) by typing, as a user does.
inline void typeInto(QLineEdit *field, const QString &text)
{
    field->selectAll();
    for (const QChar c : text) {
        // QTest::keyClicks passes only Latin-1 characters.
        QTest::sendKeyEvent(QTest::Click, field, Qt::Key_unknown, QString(c), Qt::NoModifier);
    }
}

} // namespace quorval
