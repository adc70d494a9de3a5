#include "options/dialog/CaseInsensitiveComboBoxDataSource.h"

#include <utility>

namespace quorval {

namespace {

QStringList lowerCased(const QStringList &list)
{
    QStringList lower;
    lower.reserve(list.size());
    for (const QString &s : list)
        lower.append(s.toLower());
    return lower;
}

// Lower-cased text with "#" as the sharp sign and a "b" after a note letter as the flat sign.
QString spelledAccidentals(const QString &lower)
{
    QString spelled = lower;
    spelled.replace(QLatin1Char('#'), QChar(0x266F));
    if (spelled.size() >= 2 && spelled.at(1) == QLatin1Char('b') &&
        spelled.at(0) >= QLatin1Char('a') && spelled.at(0) <= QLatin1Char('g'))
        spelled[1] = QChar(0x266D);
    return spelled;
}

} // namespace

CaseInsensitiveComboBoxDataSource::CaseInsensitiveComboBoxDataSource(QStringList choices,
                                                                     QStringList alternates,
                                                                     QObject *parent)
    : QAbstractListModel(parent)
{
    setChoices(std::move(choices), std::move(alternates));
}

void CaseInsensitiveComboBoxDataSource::setChoices(QStringList choices, QStringList alternates)
{
    beginResetModel();
    choices_ = std::move(choices);
    lcChoices_ = lowerCased(choices_);
    if (alternates.size() != choices_.size())
        alternates.clear();
    alternates_ = std::move(alternates);
    lcAlternates_ = lowerCased(alternates_);
    endResetModel();
}

CaseInsensitiveComboBoxDataSource::Found
CaseInsensitiveComboBoxDataSource::find(const QString &text, bool prefix) const
{
    const QString lower = text.toLower();
    // The text as typed first: "b" is the key B before it is ever a flat.
    for (const QString &wanted : {lower, spelledAccidentals(lower)}) {
        for (const auto &[lc, list] :
             {std::pair(&lcChoices_, &choices_), std::pair(&lcAlternates_, &alternates_)}) {
            for (qsizetype i = 0; i < lc->size(); ++i) {
                if (prefix ? lc->at(i).startsWith(wanted) : lc->at(i) == wanted)
                    return {int(i), list->at(i)};
            }
        }
    }
    return {};
}

QString CaseInsensitiveComboBoxDataSource::completedString(const QString &text) const
{
    // In the spelling the match was found in, so "g#" completes to "G♯" even among major names.
    return text.isEmpty() ? QString() : find(text, true).entry;
}

int CaseInsensitiveComboBoxDataSource::indexOfItem(const QString &value) const
{
    return find(value, false).index;
}

int CaseInsensitiveComboBoxDataSource::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : numberOfItems();
}

QVariant CaseInsensitiveComboBoxDataSource::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= choices_.size())
        return QVariant();
    if (role == Qt::DisplayRole || role == Qt::EditRole)
        return choices_.at(index.row());
    return QVariant();
}

} // namespace quorval
