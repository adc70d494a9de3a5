#pragma once

#include <QStringList>
#include <QWidget>

namespace quorval {

// The window's content view: takes sound files dropped on it. Main thread only.
class MainView : public QWidget
{
    Q_OBJECT

public:
    explicit MainView(QWidget *parent = nullptr);

signals:
    // Local files dropped on the window, in the order given.
    void filesDropped(const QStringList &paths);

protected:
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dropEvent(QDropEvent *event) override;
};

} // namespace quorval
