#pragma once

#include <QAction>
#include <QKeySequence>
#include <QList>
#include <QString>
#include <QWidget>

#include <functional>

namespace quorval {

// An action added to owner (a menu, or a widget of the window) whose keys work whatever in the
// window has the focus: the menu bar too, after a menu was closed with Escape. command runs in
// context's thread and stops with it.
inline QAction *addWindowAction(QWidget *owner, const QString &text,
                                const QList<QKeySequence> &keys, QObject *context,
                                const std::function<void()> &command)
{
    auto *action = new QAction(text, owner);
    action->setShortcuts(keys);
    action->setShortcutContext(Qt::WindowShortcut);
    QObject::connect(action, &QAction::triggered, context, command);
    owner->addAction(action);
    return action;
}

} // namespace quorval
