#pragma once

#include <QStringList>
#include <QWidget>

namespace quorval {

class MainViewController;

// The window's content view: takes the keyboard and hands every key press to its controller,
// and takes sound files dropped on it. Main thread only.
class MainView : public QWidget
{
    Q_OBJECT

public:
    explicit MainView(QWidget *parent = nullptr);

    MainViewController *controller = nullptr;

signals:
    // Local files dropped on the window, in the order given.
    void filesDropped(const QStringList &paths);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void keyReleaseEvent(QKeyEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dropEvent(QDropEvent *event) override;
};

} // namespace quorval
