#pragma once

#include <QString>

#include <memory>
#include <optional>

namespace quorval {

// The control that edits one parameter in the options dialog. The dialog's library implements
// it for each kind of parameter (text field, check box, combo box) and hands it to the
// parameter, which owns this adapter; the widget inside belongs to its dialog. Main thread only.
class ParameterView
{
public:
    virtual ~ParameterView() = default;
    // Shows the parameter's current value in the control.
    virtual void load() = 0;
    // Reads the control and sets the value; on refusal restores the control and returns false.
    virtual bool apply() = 0;
    // The parameter's list of choices was replaced; the control keeps its selected index.
    virtual void choicesChanged() {}
};

// What a real change of an option asks for, and whether it is a developer's option. Set with
// designated initializers ({.recompute = true, .debug = true}), so every flag is named where it is
// given. Every flag works the same for every kind of parameter.
struct ParameterFlags
{
    bool resegment = false; // re-cut the sound into segments (and so recompute everything)
    bool recompute = false; // recompute the analysis results
    bool recolor = false;   // recolour the display
    bool debug = false;     // shown in the dialog only in developer mode
    bool redisplay = false; // redraw the display
};

// One user option. Its value lives in the per-user store (OptionStore) as text under `name`;
// the object itself holds no value, so every parameter object of one label (tests make sets of
// their own) sees the same value. Parameters are made once by the option set and live for the
// whole run.
// Thread: values may be read from any thread; set values and views on the main thread. A value
// set on another thread is still stored safely and signalled on the main thread (OptionStore),
// but its follow-up requests are made on the setting thread.
class Parameter
{
public:
    enum class Kind
    {
        Double,
        Int,
        String,
        Boolean,
        Choice,
    };

    Parameter(QString name, ParameterFlags flags, std::optional<QString> legacyName = std::nullopt);
    virtual ~Parameter();
    Parameter(const Parameter &) = delete;
    Parameter &operator=(const Parameter &) = delete;

    // The label shown in the dialog and the key in the store.
    const QString name;
    // Another key an options file may use for this parameter; never a storage key.
    const std::optional<QString> legacyName;
    // Shown in the dialog only in developer mode; its value is used all the same.
    const bool debug;
    // The follow-up work a real change asks for, in this order (ParameterFlags).
    const bool resegment;
    const bool recompute;
    const bool recolor;
    const bool redisplay;

    // The kind of control that edits the parameter.
    virtual Kind kind() const = 0;

    // The current value as text in its stored form (a double in its format, a boolean as
    // "true" or "false", a choice as its text).
    virtual QString valueText() const = 0;
    // Converts text and sets it as the value; text that does not convert is refused like an
    // out-of-range value. Returns whether the value was accepted.
    virtual bool setFromText(const QString &text) = 0;
    // What setFromText takes, for messages: "a number from 400 to 499", "one of A, B", ...
    virtual QString allowedValues() const = 0;
    // Removes the stored text, so the value is the default again; asks for no follow-up work
    // (tests restore options with it while sounds are open).
    virtual void resetToDefault();

    // The attached control, or null before the dialog has made one.
    ParameterView *view() const { return view_.get(); }
    void setView(std::unique_ptr<ParameterView> view);
    // Shows the value in the control, if there is one.
    void loadView();
    // Takes the control's value; true when there is no control.
    bool applyView();

protected:
    std::optional<QString> storedText() const;
    // Stores text; when that changes the stored text, makes the follow-up requests the flags
    // name.
    void store(const QString &text) const;

private:
    std::unique_ptr<ParameterView> view_;
};

// A parameter edited in a text field.
class TextParameter : public Parameter
{
public:
    using Parameter::Parameter;
};

} // namespace quorval
