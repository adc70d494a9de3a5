#pragma once

#include "options/dialog/OptionsHost.h"

#include <QObject>

class QAction;
class QMenu;
class QWidget;

namespace quorval {

class Parameters;
class ParmViewController;

// The Options menu's commands as actions for the window's menu bar: "Options..." (the options
// dialog), "Read Options...", "Write Options...", "Defaults" and the "Presets" submenu, whose
// items are checked exactly when their preset is in force. After a file is read, the defaults
// or a preset, an open dialog shows the new values (edits not yet applied give way to them).
// Main thread only.
class OptionsMenu : public QObject
{
    Q_OBJECT
public:
    // window: parent of this object, the menu, the dialog and the file panels; not null.
    // parameters must outlive the window.
    OptionsMenu(Parameters &parameters, OptionsHost host, QWidget *window);

    // "Options", holding the actions below and the presets submenu; owned by the window.
    QMenu *optionsMenu() const { return optionsMenu_; }
    QMenu *presetsMenu() const { return presetsMenu_; }
    QAction *optionsAction() const { return optionsAction_; }
    QAction *readOptionsAction() const { return readOptionsAction_; }
    QAction *writeOptionsAction() const { return writeOptionsAction_; }
    QAction *defaultsAction() const { return defaultsAction_; }

    // The options dialog over the five pages, titled "Options"; made on first use.
    ParmViewController &dialog();

    // Opens the dialog at its first page.
    void optionsMenuItemSelected();
    // Opens the dialog at the option labelled label (the key button: "Key").
    void openOptionsAt(const QString &label);
    // Reads an options file chosen from folder (empty: the panel's choice).
    void readOptionsMenuItemSelected(const QString &folder = QString());
    void writeOptionsMenuItemSelected();
    // Imports the factory options.
    void defaultsOptionsMenuItemSelected();
    // Applies the preset titled as item.
    void presetSelected(const QAction *item);
    // Checks each preset item exactly when its preset is in force. Done after this menu's
    // commands, after the dialog applies and whenever the presets menu opens; call it after
    // changing options elsewhere too.
    void refreshPresets();
    // After options changed, here or elsewhere (the key guess, a sound's own options file): an
    // open dialog shows them, the presets are checked again and optionsChanged is signalled.
    void changed();

signals:
    // Options may have changed (dialog applied, file read, defaults, preset): menus and views
    // that show options follow.
    void optionsChanged();

private:
    // With the temperament "Scala file...": a tuning that cannot be read says why, once for
    // each fault (the files and the reason); later changes of other options leave it unsaid.
    void sayIfTuningUnreadable();

    Parameters &parameters_;
    OptionsHost host_;
    QWidget *window_;
    ParmViewController *dialog_ = nullptr;
    QMenu *optionsMenu_;
    QMenu *presetsMenu_;
    QAction *optionsAction_;
    QAction *readOptionsAction_;
    QAction *writeOptionsAction_;
    QAction *defaultsAction_;
    QString tuningFaultSaid_; // the files and the reason last said; empty: none
};

} // namespace quorval
