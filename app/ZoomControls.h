#pragma once

#include <QWidget>

#include <functional>

class QAction;
class QToolButton;

namespace quorval {

class DisplayView;

// The trace's zoom: in, out and whole-or-back, in time (+, -) and in height (Page Up,
// Page Down), as six buttons under "Time" and "Height" sharing their actions with the keys.
// Out is offered only while there is more to see, and the toggles show which way they go.
// Main thread only.
class ZoomControls : public QWidget
{
    Q_OBJECT

public:
    // Zooms display (which outlives the controls); the keys are actions of keysOwner's window.
    ZoomControls(DisplayView &display, QWidget *keysOwner, QWidget *parent);

    // Brings the buttons up to the display's axes; with no sound nothing zooms.
    void refresh(bool hasSound);

    QToolButton *hZoomInButton;
    QToolButton *hZoomOutButton;
    QToolButton *hToggleButton;
    QToolButton *vZoomInButton;
    QToolButton *vZoomOutButton;
    QToolButton *vToggleButton;

signals:
    // The display's axes changed by a button or key.
    void zoomed();

private:
    // Adds the action, and its button to the row.
    QToolButton *addZoom(QWidget *keysOwner, const QString &text, const QList<QKeySequence> &keys,
                         const QString &toolTip, const std::function<void()> &command);

    DisplayView &display;
};

} // namespace quorval
