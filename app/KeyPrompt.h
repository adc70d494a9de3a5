#pragma once

#include <QObject>
#include <QString>

class QTimer;
class QWidget;

namespace quorval {

class DisplayView;

// The trace's prompt line: a message for a second (a warning, the reference tone's note), and
// the choices after the f and v prefixes, which go once the second key did its command.
// Main thread only.
class KeyPrompt : public QObject
{
    Q_OBJECT

public:
    // Shows on display (which outlives the prompt); watches the keys pressed in content's window.
    KeyPrompt(DisplayView &display, QWidget *content, QObject *parent);

    // Shows message and clears it a second later.
    void show(const QString &message);
    void clear();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    DisplayView &display;
    QWidget *content;
    QTimer *timer;
};

} // namespace quorval
