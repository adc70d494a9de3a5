#pragma once

#include <QWidget>

namespace quorval {

// Two groups of controls side by side when the width holds both at their preferred sizes, one
// above the other when it does not, so that a narrow window (a 1024 px screen, half of a
// 1920 px one, or either at twice the scale) shows every control at a usable size instead of
// squeezing some to nothing. Main thread only.
class ToolRow : public QWidget
{
    Q_OBJECT

public:
    // Between the groups, across and down, in pixels.
    static constexpr int kSpacing = 6;

    // Takes first and second as children.
    ToolRow(QWidget *first, QWidget *second, QWidget *parent = nullptr);

    // Both groups side by side at their preferred sizes.
    [[nodiscard]] QSize sizeHint() const override;
    // The wider group's minimum: stacked, the row needs no more.
    [[nodiscard]] QSize minimumSizeHint() const override;
    [[nodiscard]] bool hasHeightForWidth() const override { return true; }
    [[nodiscard]] int heightForWidth(int width) const override;

protected:
    void resizeEvent(QResizeEvent *event) override;
    // A group's size changed (the level meter shown while recording): placed anew.
    bool event(QEvent *event) override;

private:
    [[nodiscard]] bool fitsSideBySide(int width) const;
    void place();

    QWidget *first;
    QWidget *second;
};

} // namespace quorval
