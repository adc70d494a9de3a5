#pragma once

#include <QAbstractListModel>
#include <QStringList>

namespace quorval {

// The list behind a choice option's combo box, with completion and look-up that ignore letter
// case, so "g" finds "G" and "mean" finds "Mean Tone". The ASCII "#" and "b" (after a note
// letter) stand for the sharp and flat signs, as on the command line: "bb" finds "B♭".
//
// An option may give alternates: a list of the same length naming entry i in another spelling
// (the key's minor and major names). They are searched after the choices, so "g#" finds entry
// 4 while the major names are shown. Alternates of another length are a list the user is not
// offered (the temperaments hidden outside developer mode) and are left out.
// Main thread only.
class CaseInsensitiveComboBoxDataSource : public QAbstractListModel
{
    Q_OBJECT
public:
    explicit CaseInsensitiveComboBoxDataSource(QStringList choices, QStringList alternates = {},
                                               QObject *parent = nullptr);

    // Replaces the lists; a combo box over this model loses its selection.
    void setChoices(QStringList choices, QStringList alternates = {});
    const QStringList &choices() const { return choices_; }

    int numberOfItems() const { return int(choices_.size()); }
    // The choice at i, as the option spells it.
    QString objectValue(int i) const { return choices_.value(i); }
    // The first entry that begins with text in any letter case, spelled as the option spells
    // it; empty when none does (the field keeps what was typed).
    QString completedString(const QString &text) const;
    // The position of the entry equal to value in any letter case; -1 when none is.
    int indexOfItem(const QString &value) const;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;

private:
    struct Found
    {
        int index = -1;
        QString entry;
    };
    // The first entry of choices, then of alternates, that begins with (prefix) or equals text.
    Found find(const QString &text, bool prefix) const;

    QStringList choices_;
    QStringList lcChoices_;
    QStringList alternates_;
    QStringList lcAlternates_;
};

} // namespace quorval
