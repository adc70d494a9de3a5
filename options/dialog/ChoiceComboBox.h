#pragma once

#include "options/dialog/CaseInsensitiveComboBoxDataSource.h"

#include <QComboBox>

namespace quorval {

// An editable combo box over a CaseInsensitiveComboBoxDataSource. Typing at the end of the text
// completes it in place to the first matching choice in its own spelling, the completed tail
// selected so the next key replaces it; deleting never completes, so the tail can be removed.
// Main thread only.
class ChoiceComboBox : public QComboBox
{
    Q_OBJECT
public:
    explicit ChoiceComboBox(QWidget *parent = nullptr);

    // Owned by the box.
    CaseInsensitiveComboBoxDataSource &dataSource() { return *dataSource_; }

    // Position in the data source of the text shown (any letter case, "#" and "b" for the
    // signs); -1 when it names no entry.
    int indexOfText() const;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void textEdited(const QString &text);

    CaseInsensitiveComboBoxDataSource *dataSource_;
    // The text a key press started from, less its selection: longer text after it was typed.
    QString keptBeforeEdit_;
};

} // namespace quorval
