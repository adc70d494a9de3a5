#include "app/KeyPrompt.h"

#include "display/DisplayView.h"
#include "options/ViewType.h"

#include <QApplication>
#include <QKeyEvent>
#include <QStringList>
#include <QTimer>
#include <QWidget>

namespace quorval {

namespace {

const QString kFilePrompt = QStringLiteral("File... New, Open, Save, saveAs");
const QString kViewPrompt =
    QStringLiteral("View... ") + viewTypeChoices().join(QStringLiteral(", "));

} // namespace

KeyPrompt::KeyPrompt(DisplayView &view, QWidget *watched, QObject *parent)
    : QObject(parent), display(view), content(watched), timer(new QTimer(this))
{
    timer->setSingleShot(true);
    timer->setInterval(1000);
    connect(timer, &QTimer::timeout, this, &KeyPrompt::clear);
    QApplication::instance()->installEventFilter(this);
}

void KeyPrompt::show(const QString &message)
{
    display.setPromptMessage(message);
    timer->start();
    display.update();
}

void KeyPrompt::clear()
{
    timer->stop();
    if (!display.promptMessage().isEmpty()) {
        display.setPromptMessage(QString());
        display.update();
    }
}

bool KeyPrompt::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::ShortcutOverride) {
        // The first key of a sequence: f and v only ever start one.
        const auto &key = static_cast<const QKeyEvent &>(*event);
        auto *widget = qobject_cast<QWidget *>(watched);
        if ((key.modifiers() & ~Qt::KeypadModifier) == Qt::NoModifier && widget &&
            widget->window() == content->window()) {
            if (key.key() == Qt::Key_F)
                show(kFilePrompt);
            else if (key.key() == Qt::Key_V)
                show(kViewPrompt);
        }
    } else if (event->type() == QEvent::Shortcut) {
        clear();
    }
    return QObject::eventFilter(watched, event);
}

} // namespace quorval
