#pragma once

#include <QObject>
#include <QString>

#include <functional>

class QWidget;

namespace quorval {

// F1 anywhere in the application opens the help of the place in use. The place is found from
// the widget with the keyboard focus (else the active window) outward:
// - a widget with a non-empty "helpTopic" property names its topic (the main window sets
//   "Manual", a page of a dialog its own);
// - a dialog with a visible, enabled Help button (the QDialogButtonBox Help role) gets the
//   button pressed, so F1 does exactly what its Help button does;
// - with neither, the topic is "Manual".
// Installed once on the application object. Main thread only.
class ContextHelp : public QObject
{
    Q_OBJECT
public:
    // Opens help at a topic (HelpViewer::showTopic, which says "Help not available" itself).
    using ShowTopic = std::function<void(const QString &topic)>;

    // Filters the application's key presses for as long as this object lives.
    explicit ContextHelp(ShowTopic showTopic, QObject *parent = nullptr);
    ~ContextHelp() override;

    // What F1 would do at widget: opens the topic or presses the Help button.
    void helpAt(QWidget *widget);

    // The name of the property that gives a widget its help topic.
    static const char *const kTopicProperty;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    ShowTopic showTopic_;
};

} // namespace quorval
