#include "app/ZoomControls.h"

#include "app/TransportBar.h"
#include "app/WindowAction.h"
#include "display/DisplayView.h"
#include "options/Parameters.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>

namespace quorval {

namespace {

// How far one step zooms in (its inverse out).
double increment()
{
    return Parameters::shared().zoomIncrement.value();
}

} // namespace

ZoomControls::ZoomControls(DisplayView &view, QWidget *keysOwner, QWidget *parent)
    : QWidget(parent), display(view)
{
    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(new QLabel(tr("Time"), this));
    hZoomInButton = addZoom(keysOwner, QStringLiteral("+"), {Qt::Key_Plus, Qt::Key_Equal},
                            tr("Zoom in in time (+)"), [this] { display.hZoom(increment()); });
    hZoomOutButton = addZoom(keysOwner, QStringLiteral("\u2212"), {Qt::Key_Minus},
                             tr("Zoom out in time (-)"), [this] {
                                 if (display.canHScrollOut())
                                     display.hZoom(1.0 / increment());
                             });
    hToggleButton =
        addZoom(keysOwner, QStringLiteral("\u2194"), {}, {}, [this] { display.hToggle(); });
    row->addSpacing(8);
    row->addWidget(new QLabel(tr("Height"), this));
    vZoomInButton =
        addZoom(keysOwner, QStringLiteral("+"), {Qt::Key_PageUp}, tr("Zoom in in height (Page Up)"),
                [this] { display.vZoom(increment()); });
    vZoomOutButton =
        addZoom(keysOwner, QStringLiteral("\u2212"), {Qt::Key_PageDown},
                tr("Zoom out in height (Page Down)"), [this] { display.vZoom(1.0 / increment()); });
    vToggleButton =
        addZoom(keysOwner, QStringLiteral("\u2195"), {}, {}, [this] { display.vToggle(); });
    for (QToolButton *toggle : {hToggleButton, vToggleButton})
        toggle->defaultAction()->setCheckable(true);
}

QToolButton *ZoomControls::addZoom(QWidget *keysOwner, const QString &text,
                                   const QList<QKeySequence> &keys, const QString &toolTip,
                                   const std::function<void()> &command)
{
    QAction *action = addWindowAction(keysOwner, text, keys, this, [this, command] {
        command();
        emit zoomed();
    });
    if (!toolTip.isEmpty())
        action->setToolTip(toolTip);
    QToolButton *button = makeToolButton(this, {}, {}, {}, false);
    button->setDefaultAction(action);
    layout()->addWidget(button);
    return button;
}

void ZoomControls::refresh(bool hasSound)
{
    const bool h = display.canHScrollOut();
    const bool v = display.canVScrollOut();
    for (QToolButton *b :
         {hZoomInButton, hToggleButton, vZoomInButton, vZoomOutButton, vToggleButton})
        b->defaultAction()->setEnabled(hasSound);
    hZoomOutButton->defaultAction()->setEnabled(hasSound && h);
    hToggleButton->defaultAction()->setChecked(h);
    hToggleButton->defaultAction()->setToolTip(h ? tr("Zoom out full") : tr("Restore zoom"));
    vToggleButton->defaultAction()->setChecked(v);
    vToggleButton->defaultAction()->setToolTip(v ? tr("Zoom out full") : tr("Restore zoom"));
}

} // namespace quorval
