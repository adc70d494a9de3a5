#pragma once

#include <QStringList>
#include <QWidget>

class QPushButton;
class QTextBrowser;

namespace quorval {

// The help window: a text browser over the HTML pages compiled into the program, one page per
// topic at ":/help/<topic>.html" ("GettingStarted", "Manual", and one per options page:
// "ScaleTab", "ViewTab", "ProcessTab", "AudioTab", "FilesTab"). Links between pages, pictures
// and anchors ("Manual#keys") resolve inside the resources; links to the web open in the
// browser. One window serves the whole run: opening a topic shows and raises it.
// Main thread only.
class HelpViewer : public QWidget
{
    Q_OBJECT
public:
    explicit HelpViewer(QWidget *parent = nullptr);

    // Whether a page exists for topic (a bare name, optionally with "#anchor").
    static bool hasTopic(const QString &topic);
    // The topics the program has pages for, sorted.
    static QStringList topics();

    // Shows the page of topic and raises the window; false, with nothing changed, when there
    // is no page for it.
    bool openHelp(const QString &topic);
    // As openHelp, but a missing page says "Help not available" through showMessage.
    void showTopic(const QString &topic);

    // The topic of the page shown, empty before the first.
    QString currentTopic() const;
    QTextBrowser *browser() const { return browser_; }
    QPushButton *backButton() const { return backButton_; }
    QPushButton *contentsButton() const { return contentsButton_; }

private:
    // Before it first shows: whole on the screen of the window it helps with, over its middle.
    void placeOnScreen();

    QTextBrowser *browser_;
    QPushButton *backButton_;
    QPushButton *forwardButton_;
    QPushButton *contentsButton_;
    bool placed_ = false;
};

} // namespace quorval
