#pragma once

#include "options/Parameters.h"

#include <QDialog>
#include <QStringList>

#include <functional>
#include <vector>

class QDialogButtonBox;
class QLabel;
class QPushButton;
class QTabWidget;

namespace quorval {

// The options dialog: one tab per page of options, one row per option (its label and the
// control its kind calls for), with OK, Apply, Cancel and Help. Rows come from the pages handed
// in, so an option added to a page appears without changes here; options flagged debug get a
// row only in developer mode.
//
// Values are read from the store when the dialog opens (loadView) and set through each option's
// own checks when applied (applyView). A refused value snaps back in its control, and a small
// label beside it says what the option takes; OK then leaves the dialog open. Cancel, Escape and
// closing the window apply nothing and put every control back to the stored value; the "Minor" box
// switches the "Key" list at once while the dialog is open, so cancelling also returns the list to
// the stored "Minor".
//
// While the dialog exists its controls are the views attached to its options; make one dialog
// per option set at a time. Main thread only.
class ParmViewController : public QDialog
{
    Q_OBJECT
public:
    // Opens the help viewer at a topic; returns false when there is no page for it.
    using OpenHelp = std::function<bool(const QString &topic)>;

    // pages: in tab order, each with its tab identifier; the options must outlive the dialog.
    // helpTopics: one per page ("ScaleTab" ...); when empty, Help is hidden. modal: whether the
    // dialog blocks the rest of the application while open.
    ParmViewController(std::vector<Parameters::Page> pages, const QString &title, bool modal,
                       QStringList helpTopics, OpenHelp openHelp, QWidget *parent = nullptr);
    ~ParmViewController() override;

    // Shows the dialog with the stored values at page (0 = the first), the keyboard in the
    // page's first control.
    void openAtPage(int page);
    // Shows the dialog at the option labelled label, the keyboard in its control. An option
    // without a row (debug, outside developer mode) opens its page; an unknown label the first.
    void openAtOption(const QString &label);

    // Shows the stored value in every control.
    void loadView();
    // Applies every shown control; false when any value was refused (and snapped back).
    bool applyView();
    // The result of the last apply.
    bool applyOK() const { return applyOK_; }

    // The control of the option labelled label, or null when it has no row.
    QWidget *control(const QString &label) const;
    // The small label beside that control that says why its last value was refused; empty
    // until one is, and again after the next edit or opening. Null when it has no row.
    QLabel *refusal(const QString &label) const;
    QTabWidget *tabView() const { return tabView_; }
    QPushButton *okButton() const { return okButton_; }
    QPushButton *applyButton() const { return applyButton_; }
    QPushButton *cancelButton() const { return cancelButton_; }
    QPushButton *helpButton() const { return helpButton_; }

    // Applies; closes only when every value was accepted.
    void okButtonPushed();
    // Applies and stays open.
    void applyButtonPushed();
    void cancelButtonPushed();
    // Opens help at the topic of the tab shown, or says "Help not available".
    void helpButtonPushed();

signals:
    // After every apply, accepted or not: options may have changed, so menus and views follow.
    void applied();

protected:
    // Escape and the window's close button: as Cancel.
    void reject() override;

private:
    struct Row
    {
        Parameter *parameter;
        QWidget *control;
        QLabel *refusal;
    };

    const Row *row(const QString &label) const;
    // (Re)builds the pages when developer mode changed since they were built.
    void buildPages();
    void removePages();
    QWidget *buildPage(const Parameters::Page &page, std::vector<Row> &rows);
    void prepareToOpen();
    void showAt(int page, QWidget *focus);

    std::vector<Parameters::Page> parmLists_;
    // The rows shown, per page.
    std::vector<std::vector<Row>> rows_;
    QStringList helpTopics_;
    OpenHelp openHelp_;
    bool builtForDeveloperMode_ = false;
    bool built_ = false;
    bool applyOK_ = true;

    QTabWidget *tabView_;
    QDialogButtonBox *buttons_;
    QPushButton *okButton_;
    QPushButton *applyButton_;
    QPushButton *cancelButton_;
    QPushButton *helpButton_;
};

} // namespace quorval
