#include "app/ToolRow.h"

#include <QEvent>

#include <algorithm>

namespace quorval {

ToolRow::ToolRow(QWidget *firstGroup, QWidget *secondGroup, QWidget *parent)
    : QWidget(parent), first(firstGroup), second(secondGroup)
{
    first->setParent(this);
    second->setParent(this);
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

bool ToolRow::fitsSideBySide(int width) const
{
    return width >= first->sizeHint().width() + kSpacing + second->sizeHint().width();
}

QSize ToolRow::sizeHint() const
{
    const int width = first->sizeHint().width() + kSpacing + second->sizeHint().width();
    return {width, heightForWidth(width)};
}

QSize ToolRow::minimumSizeHint() const
{
    const int width = std::max(first->minimumSizeHint().width(), second->minimumSizeHint().width());
    return {width, heightForWidth(width)};
}

int ToolRow::heightForWidth(int width) const
{
    const int a = first->sizeHint().height();
    const int b = second->sizeHint().height();
    return fitsSideBySide(width) ? std::max(a, b) : a + kSpacing + b;
}

void ToolRow::place()
{
    const QSize a = first->sizeHint();
    const QSize b = second->sizeHint();
    const int firstWidth = std::min(a.width(), width());
    const int secondWidth = std::min(b.width(), width());
    if (fitsSideBySide(width())) {
        const int rowHeight = std::max(a.height(), b.height());
        first->setGeometry(0, (rowHeight - a.height()) / 2, firstWidth, a.height());
        second->setGeometry(width() - secondWidth, (rowHeight - b.height()) / 2, secondWidth,
                            b.height());
    } else {
        first->setGeometry(0, 0, firstWidth, a.height());
        second->setGeometry(0, a.height() + kSpacing, secondWidth, b.height());
    }
}

void ToolRow::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    place();
}

bool ToolRow::event(QEvent *event)
{
    if (event->type() == QEvent::LayoutRequest) {
        // The height may change with the arrangement.
        updateGeometry();
        place();
    }
    return QWidget::event(event);
}

} // namespace quorval
