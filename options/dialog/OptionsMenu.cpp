#include "options/dialog/OptionsMenu.h"

#include "options/Messages.h"
#include "options/OptionsFile.h"
#include "options/Parameters.h"
#include "options/dialog/ParmViewController.h"
#include "scale/Scale.h"

#include <QAction>
#include <QFileDialog>
#include <QMenu>

#include <utility>

namespace quorval {

namespace {

const QString kOptionsFilter = QStringLiteral("Options (*.plist)");

std::optional<QString> chosenFile(QFileDialog &panel)
{
    if (panel.exec() != QDialog::Accepted || panel.selectedFiles().isEmpty())
        return std::nullopt;
    return panel.selectedFiles().constFirst();
}

} // namespace

OptionsMenu::OptionsMenu(Parameters &parameters, OptionsHost host, QWidget *window)
    : QObject(window), parameters_(parameters), host_(std::move(host)), window_(window),
      optionsMenu_(new QMenu(QStringLiteral("&Options"), window)),
      presetsMenu_(new QMenu(QStringLiteral("Presets"), optionsMenu_)),
      optionsAction_(optionsMenu_->addAction(QStringLiteral("Options..."))),
      readOptionsAction_(optionsMenu_->addAction(QStringLiteral("Read Options..."))),
      writeOptionsAction_(optionsMenu_->addAction(QStringLiteral("Write Options..."))),
      defaultsAction_(optionsMenu_->addAction(QStringLiteral("Defaults")))
{
    optionsMenu_->addSeparator();
    optionsMenu_->addMenu(presetsMenu_);
    connect(optionsAction_, &QAction::triggered, this, &OptionsMenu::optionsMenuItemSelected);
    connect(readOptionsAction_, &QAction::triggered, this,
            [this] { readOptionsMenuItemSelected(); });
    connect(writeOptionsAction_, &QAction::triggered, this,
            &OptionsMenu::writeOptionsMenuItemSelected);
    connect(defaultsAction_, &QAction::triggered, this,
            &OptionsMenu::defaultsOptionsMenuItemSelected);

    for (Preset &preset : parameters_.presets()) {
        QAction *item = presetsMenu_->addAction(preset.name);
        item->setCheckable(true);
        preset.menuItem = item;
        connect(item, &QAction::triggered, this, [this, item] { presetSelected(item); });
    }
    connect(presetsMenu_, &QMenu::aboutToShow, this, &OptionsMenu::refreshPresets);
    refreshPresets();
}

ParmViewController &OptionsMenu::dialog()
{
    if (!dialog_) {
        std::vector<Parameters::Page> pages = parameters_.dialogPages();
        QStringList topics;
        for (const Parameters::Page &page : pages)
            topics.append(page.tabIdentifier);
        // Not modal: Apply shows its effect while the window can still be used.
        dialog_ = new ParmViewController(std::move(pages), QStringLiteral("Options"), false, topics,
                                         host_.openHelp, window_);
        // The dialog has just loaded its own controls.
        connect(dialog_, &ParmViewController::applied, this, [this] {
            sayIfTuningUnreadable();
            refreshPresets();
            emit optionsChanged();
        });
    }
    return *dialog_;
}

void OptionsMenu::optionsMenuItemSelected()
{
    dialog().openAtPage(0);
}

void OptionsMenu::openOptionsAt(const QString &label)
{
    dialog().openAtOption(label);
}

void OptionsMenu::readOptionsMenuItemSelected(const QString &folder)
{
    std::optional<QString> path;
    if (host_.chooseFileToRead) {
        path = host_.chooseFileToRead(folder);
    } else {
        QFileDialog panel(window_, QStringLiteral("Read Options"), folder, kOptionsFilter);
        panel.setFileMode(QFileDialog::ExistingFile);
        path = chosenFile(panel);
    }
    if (path && OptionsFile::readOptions(parameters_, *path))
        changed();
}

void OptionsMenu::writeOptionsMenuItemSelected()
{
    std::optional<QString> path;
    if (host_.chooseFileToWrite) {
        path = host_.chooseFileToWrite();
    } else {
        QFileDialog panel(window_, QStringLiteral("Write Options"), QString(), kOptionsFilter);
        panel.setAcceptMode(QFileDialog::AcceptSave);
        panel.setDefaultSuffix(QStringLiteral("plist"));
        path = chosenFile(panel);
    }
    if (path)
        OptionsFile::writeOptions(parameters_, *path);
}

void OptionsMenu::defaultsOptionsMenuItemSelected()
{
    if (OptionsFile::defaultOptions(parameters_))
        changed();
}

void OptionsMenu::presetSelected(const QAction *item)
{
    if (parameters_.presetSelected(item->text()))
        changed();
    else
        refreshPresets();
}

void OptionsMenu::sayIfTuningUnreadable()
{
    QString error;
    if (!Scale::tuningUnreadable(parameters_, error)) {
        tuningFaultSaid_.clear();
        return;
    }
    // The grid keeps to equal temperament meanwhile, which the key label shows; the reader
    // names the line at fault.
    const QString fault = parameters_.scalaFile.value() + QLatin1Char('\n') +
                          parameters_.keyboardMappingFile.value() + QLatin1Char('\n') + error;
    if (std::exchange(tuningFaultSaid_, fault) != fault)
        showMessage(QStringLiteral("Error"), error);
}

void OptionsMenu::refreshPresets()
{
    for (const Preset &preset : parameters_.presets()) {
        if (auto *item = qobject_cast<QAction *>(preset.menuItem))
            item->setChecked(Parameters::matches(preset));
    }
}

void OptionsMenu::changed()
{
    // An open dialog shows what is now in force.
    if (dialog_ && dialog_->isVisible())
        dialog_->loadView();
    sayIfTuningUnreadable();
    refreshPresets();
    emit optionsChanged();
}

} // namespace quorval
