#pragma once

#include <QObject>
#include <QStringList>

#include <vector>

namespace quorval {

class Parameter;

// A named set of option values offered in the Options menu. Entry i of values is the text for
// params[i]; they are applied in this order. Main thread only.
struct Preset
{
    QString name;
    // Parameters of the option set; not owned.
    std::vector<Parameter *> params;
    QStringList values;
    // The menu item that shows the preset, once the menu has one; not owned.
    QObject *menuItem = nullptr;
};

} // namespace quorval
