#include "help/HelpViewer.h"

#include "help/ContextHelp.h"
#include "options/Parameters.h"
#include "options/dialog/ParmViewController.h"
#include "options/dialog/tests/support/DialogTest.h"

#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QTabWidget>
#include <QTextBrowser>
#include <QTextDocument>

#include <gtest/gtest.h>

namespace quorval {
namespace {

using HelpViewerTest = DialogTest;

QString pageText(const QString &topic)
{
    QFile file(QStringLiteral(":/help/%1.html").arg(topic));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

// The page's text as a reader sees it, entities resolved.
QString plainText(const QString &topic)
{
    QTextDocument document;
    document.setHtml(pageText(topic));
    return document.toPlainText();
}

// Every topic a menu or a dialog of the program opens.
QStringList namedTopics()
{
    QStringList topics = {QStringLiteral("GettingStarted"), QStringLiteral("Manual")};
    for (const Parameters::Page &page : Parameters::shared().dialogPages())
        topics.append(page.tabIdentifier);
    return topics;
}

TEST_F(HelpViewerTest, everyNamedTopicOpensItsPageAndOthersAreNotAvailable)
{
    HelpViewer viewer;
    viewer.resize(820, 680);
    QDir().mkpath(QStringLiteral(QUORVAL_TEST_PICTURES));
    for (const QString &topic : namedTopics()) {
        ASSERT_TRUE(viewer.openHelp(topic)) << topic.toStdString();
        EXPECT_TRUE(viewer.grab().save(QStringLiteral(QUORVAL_TEST_PICTURES "/") + topic + ".png"));
        EXPECT_EQ(viewer.currentTopic(), topic);
        EXPECT_FALSE(viewer.browser()->documentTitle().isEmpty()) << topic.toStdString();
        EXPECT_TRUE(viewer.isVisible());
    }
    EXPECT_TRUE(viewer.backButton()->isEnabled());
    viewer.backButton()->click();
    EXPECT_EQ(viewer.currentTopic(), namedTopics()[namedTopics().size() - 2]);
    viewer.contentsButton()->click();
    EXPECT_EQ(viewer.currentTopic(), "Manual");

    for (const QString &missing : {QString(), QStringLiteral("NoSuchTab"), QStringLiteral("#keys"),
                                   QStringLiteral("../help/Manual"), QStringLiteral("manual")}) {
        EXPECT_FALSE(viewer.openHelp(missing)) << missing.toStdString();
        EXPECT_EQ(viewer.currentTopic(), "Manual");
    }
    EXPECT_TRUE(messages.isEmpty());
    viewer.showTopic(QStringLiteral("NoSuchTab"));
    EXPECT_EQ(messages, QStringList{"Help | Help not available"});
    viewer.showTopic(QStringLiteral("Manual#keys"));
    EXPECT_EQ(messages.size(), 1);
    EXPECT_EQ(viewer.browser()->source().fragment(), "keys");
}

// The pictures are checked by the window's tests: some are drawn by the window.
TEST_F(HelpViewerTest, everyLinkOfEveryPageIsThere)
{
    static const QRegularExpression reference(QStringLiteral(R"re(href="([^"]*)")re"));
    const QStringList topics = HelpViewer::topics();
    for (const QString &topic : namedTopics())
        EXPECT_TRUE(topics.contains(topic)) << topic.toStdString();
    for (const QString &topic : topics) {
        const QString html = pageText(topic);
        ASSERT_FALSE(html.isEmpty()) << topic.toStdString();
        for (const QRegularExpressionMatch &match : reference.globalMatch(html)) {
            const QString target = match.captured(1);
            const QString where = (topic + QStringLiteral(": ") + target);
            if (target.startsWith(QLatin1String("https://")))
                continue;
            const QString file = target.section(QLatin1Char('#'), 0, 0);
            const QString anchor = target.section(QLatin1Char('#'), 1);
            const QString path =
                QStringLiteral(":/help/") + (file.isEmpty() ? topic + ".html" : file);
            ASSERT_TRUE(QFile::exists(path)) << where.toStdString();
            if (!anchor.isEmpty()) {
                QFile page(path);
                ASSERT_TRUE(page.open(QIODevice::ReadOnly));
                EXPECT_TRUE(page.readAll().contains(("id=\"" + anchor + "\"").toUtf8()))
                    << where.toStdString();
            }
        }
    }
}

TEST_F(HelpViewerTest, eachOptionsPageDescribesEveryOptionOnIt)
{
    for (const Parameters::Page &page : Parameters::shared().dialogPages()) {
        const QString text = plainText(page.tabIdentifier);
        for (const Parameter *parameter : page.parameters)
            EXPECT_TRUE(text.contains(parameter->name))
                << page.tabIdentifier.toStdString() << " lacks " << parameter->name.toStdString();
    }
    // The manual tells where each choice of the options lives, and the keys of the window.
    const QString manual = plainText(QStringLiteral("Manual"));
    for (const QString &topic : namedTopics().mid(2))
        EXPECT_TRUE(pageText(QStringLiteral("Manual")).contains(topic + ".html"))
            << topic.toStdString();
    for (const char *key : {"Space", "Page Up", "Page Down", "Ctrl+O", "F1"})
        EXPECT_TRUE(manual.contains(key)) << key;
}

TEST_F(HelpViewerTest, f1OpensTheHelpOfThePlaceInUse)
{
    QStringList shown;
    ContextHelp contextHelp([&](const QString &topic) { shown.append(topic); });

    QWidget window;
    window.setProperty(ContextHelp::kTopicProperty, QStringLiteral("GettingStarted"));
    auto *field = new QLineEdit(&window);
    window.show();
    field->setFocus();
    QTest::keyClick(field, Qt::Key_F1);
    EXPECT_EQ(shown, QStringList{"GettingStarted"});
    // Other keys, and F1 with a modifier, pass through to the widget.
    QTest::keyClick(field, Qt::Key_A);
    QTest::keyClick(field, Qt::Key_F1, Qt::ShiftModifier);
    EXPECT_EQ(field->text(), "a");
    EXPECT_EQ(shown.size(), 1);

    QWidget plain;
    contextHelp.helpAt(&plain);
    EXPECT_EQ(shown.last(), "Manual");

    // In the options dialog F1 is its Help button: the topic of the tab shown.
    Parameters &parameters = Parameters::shared();
    QStringList topics;
    for (const Parameters::Page &page : parameters.dialogPages())
        topics.append(page.tabIdentifier);
    HelpViewer viewer;
    ParmViewController dialog(parameters.dialogPages(), QStringLiteral("Options"), false, topics,
                              [&](const QString &topic) { return viewer.openHelp(topic); });
    dialog.openAtPage(3);
    QWidget *focus = dialog.focusWidget();
    ASSERT_NE(focus, nullptr);
    QTest::keyClick(focus, Qt::Key_F1);
    EXPECT_EQ(viewer.currentTopic(), "AudioTab");
    EXPECT_EQ(shown.size(), 2);
    EXPECT_TRUE(messages.isEmpty());
}

} // namespace
} // namespace quorval
