#include "help/ContextHelp.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDialogButtonBox>
#include <QKeyEvent>
#include <QWidget>

namespace quorval {

const char *const ContextHelp::kTopicProperty = "helpTopic";

namespace {

// The Help button of a dialog's button box that the user could press now, or null.
QAbstractButton *helpButtonOf(QWidget *window)
{
    for (QDialogButtonBox *box : window->findChildren<QDialogButtonBox *>()) {
        for (QAbstractButton *button : box->buttons()) {
            if (box->buttonRole(button) == QDialogButtonBox::HelpRole && button->isVisible() &&
                button->isEnabled())
                return button;
        }
    }
    return nullptr;
}

} // namespace

ContextHelp::ContextHelp(ShowTopic showTopic, QObject *parent)
    : QObject(parent), showTopic_(std::move(showTopic))
{
    qApp->installEventFilter(this);
}

ContextHelp::~ContextHelp()
{
    qApp->removeEventFilter(this);
}

void ContextHelp::helpAt(QWidget *widget)
{
    for (QWidget *w = widget; w; w = w->parentWidget()) {
        const QString topic = w->property(kTopicProperty).toString();
        if (!topic.isEmpty()) {
            showTopic_(topic);
            return;
        }
        if (w->isWindow()) {
            if (QAbstractButton *button = helpButtonOf(w)) {
                button->click();
                return;
            }
        }
    }
    showTopic_(QStringLiteral("Manual"));
}

bool ContextHelp::eventFilter(QObject *watched, QEvent *event)
{
    // Only the press that reaches a widget counts: the application sees each key press once
    // per object on the way, and only the first should open help.
    if (event->type() != QEvent::KeyPress || !watched->isWidgetType())
        return false;
    auto *key = static_cast<QKeyEvent *>(event);
    if (key->key() != Qt::Key_F1 || key->modifiers() != Qt::NoModifier)
        return false;
    QWidget *place = QApplication::focusWidget();
    if (!place)
        place = QApplication::activeWindow();
    if (!place)
        place = static_cast<QWidget *>(watched);
    helpAt(place);
    return true;
}

} // namespace quorval
