#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>

namespace quorval {

// Files from outside (dropped on the window, handed over by a later launch, chosen from the
// recent files) wait here and are opened one at a time from the event loop, once started and
// while no dialog shows: whoever handed them over has returned, and a question being asked
// (by anyone) is answered before the next file comes. Main thread only.
class IncomingFiles : public QObject
{
    Q_OBJECT

public:
    // At most this many files wait; later ones are dropped with a line on stderr.
    static constexpr std::size_t kMaxWaiting = 16;
    // How often waiting files look again whether a dialog is still showing.
    static constexpr std::chrono::milliseconds kModalPoll{200};

    // open takes one file; it may ask questions of its own.
    IncomingFiles(std::function<void(const QString &path)> open, QObject *parent);

    void add(const QStringList &paths);
    // Opens the files added so far and those that come later.
    void start();

private:
    void openNext();

    std::function<void(const QString &)> open;
    std::deque<QString> waiting;
    bool started = false;
    bool opening = false;
};

} // namespace quorval
