#pragma once

#include <dv/env/Export.h>

#include <fx.h>

#include <cstdint>

namespace dv::env {

// Data targets bind a FOX widget to a named option, so that a dialog needs no
// handler code of its own. The widget's commands write the option, its GUI
// updates show it; nothing is cached, so a change made elsewhere shows at the
// next update. A data target reads without recording: what a dialog shows is
// not noted in `optionsRecorder()` as an option the run used.
//
//     using dv::env::DataTarget;
//     new FXCheckButton(box, "Convert text",
//                       dv::env::DataTargetBool::get("ToolConvertText", nullptr, 0),
//                       DataTarget::ID_VALUE);
//     // a radio group for an integer option: the button on ID_OPTION + k means k
//     for (int k = 0; k < 3; ++k)
//         new FXRadioButton(box, labels[k], dv::env::DataTargetInt::get("ToolConvertDonutsStyle", nullptr, 0),
//                           DataTarget::ID_OPTION + k);
//
// A host object given as `target` is told, with the widget as sender, the
// message FXSEL(type, low 16 bits of `selector`) and the option's name as a
// `const char*` in `ptr`:
//   SEL_UPDATE  before each update of the widget (it may adjust the option first);
//   SEL_CHANGED after a command that changed the option's value;
//   SEL_VERIFY  before each command of a string target: any non-zero answer
//               refuses the change.
//
// Data targets are owned by the library and live until it is unloaded; widgets
// only point to them. They belong to the thread of the FOX event loop. The
// host's `target` must outlive the widget's messages.
//
// Text fields and tree list boxes take effect on SEL_COMMAND only (Enter, or a
// chosen item); other widgets also on each SEL_CHANGED. Tree list boxes are
// matched by item user data (boolean, integer options) or by label (string
// options).
class DV_ENV_EXPORT DataTarget : public FX::FXObject {
    FXDECLARE_ABSTRACT(DataTarget)
public:
    enum {
        /// The widget edits the option's value itself and reports it.
        ID_VALUE = 1,
        /// ID_OPTION + k: the widget stands for the value k and reports 1 when chosen.
        ID_OPTION = 2,
    };

    DataTarget(const DataTarget& other);
    DataTarget& operator=(const DataTarget& other);
    ~DataTarget() override;

protected:
    DataTarget() = default;
};

/// A boolean option. On ID_VALUE the widget reports 1 for true. On ID_OPTION
/// the widget means false and on ID_OPTION + 1 true, and shows on while the
/// option has its value. A tree list box item with user data 1 means true. A
/// widget of the exact class FXMenuCommand turns the option over: a report of
/// 1 writes false.
class DV_ENV_EXPORT DataTargetBool : public DataTarget {
    FXDECLARE(DataTargetBool)
public:
    /// A new data target for the option `name`, owned by the library; each call
    /// makes another one. The name is looked up at each message, not here.
    ///
    ///     new FXCheckButton(box, "Show tooltips",
    ///                       DataTargetBool::get("DvShowTooltips", this, ID_TOOLTIPS),
    ///                       DataTarget::ID_VALUE);
    static DataTargetBool* get(const char* name, FX::FXObject* target, FX::FXSelector selector);

    /// The widget's value changed: writes it to the option. 1 when taken, 0 when
    /// the message is not for this target or the widget does not report a value.
    long onCmdValue(FX::FXObject* sender, FX::FXSelector sel, void* ptr);
    /// The widget asks for its state: shows the option's value. Always 1.
    long onUpdValue(FX::FXObject* sender, FX::FXSelector sel, void* ptr);

    const FX::FXString& getName() const { return name; }
    FX::FXObject* getTarget() const { return target; }
    FX::FXSelector getSelector() const { return selector; }

    DataTargetBool(const DataTargetBool& other);
    DataTargetBool& operator=(const DataTargetBool& other);
    ~DataTargetBool() override;

private:
    DataTargetBool();
    DataTargetBool(const char* optionName, FX::FXObject* notified, FX::FXSelector message);

    FX::FXString name;
    std::uint8_t value = 2;  // the value before the last command; 2 is neither
    FX::FXObject* target = nullptr;
    FX::FXSelector selector = 0;
};

/// An integer option. On ID_VALUE the widget reports the value itself; on
/// ID_OPTION + k (k from 0 to 9) a widget that reports 1 writes k, and an
/// update shows it on exactly while the option is k. A tree list box writes and
/// selects the user data of its items.
class DV_ENV_EXPORT DataTargetInt : public DataTarget {
    FXDECLARE(DataTargetInt)
public:
    /// A new data target for the option `name`, owned by the library.
    ///
    ///     new FXSpinner(box, 5, DataTargetInt::get("ToolArcPrecValue", nullptr, 0),
    ///                   DataTarget::ID_VALUE);
    static DataTargetInt* get(const char* name, FX::FXObject* target, FX::FXSelector selector);

    /// Writes the widget's value to the option; see DataTargetBool::onCmdValue.
    long onCmdValue(FX::FXObject* sender, FX::FXSelector sel, void* ptr);
    /// Shows the option's value in the widget. Always 1.
    long onUpdValue(FX::FXObject* sender, FX::FXSelector sel, void* ptr);

    const FX::FXString& getName() const { return name; }
    FX::FXObject* getTarget() const { return target; }
    FX::FXSelector getSelector() const { return selector; }

    DataTargetInt(const DataTargetInt& other);
    DataTargetInt& operator=(const DataTargetInt& other);
    ~DataTargetInt() override;

private:
    DataTargetInt();
    DataTargetInt(const char* optionName, FX::FXObject* notified, FX::FXSelector message);

    FX::FXString name;
    std::int32_t value = -9999999;
    FX::FXObject* target = nullptr;
    FX::FXSelector selector = 0;
};

/// A real option, asked for and shown through ID_GETREALVALUE and
/// ID_SETREALVALUE; the identifier of the widget plays no part. Any change of
/// the value, down to the last bit, counts as a change.
class DV_ENV_EXPORT DataTargetReal : public DataTarget {
    FXDECLARE(DataTargetReal)
public:
    /// A new data target for the option `name`, owned by the library.
    ///
    ///     new FXRealSpinner(box, 6, DataTargetReal::get("ToolErrorMargin", nullptr, 0),
    ///                       DataTarget::ID_VALUE);
    static DataTargetReal* get(const char* name, FX::FXObject* target, FX::FXSelector selector);

    /// Writes the widget's number to the option; see DataTargetBool::onCmdValue.
    long onCmdValue(FX::FXObject* sender, FX::FXSelector sel, void* ptr);
    /// Shows the option's value in the widget. Always 1.
    long onUpdValue(FX::FXObject* sender, FX::FXSelector sel, void* ptr);

    const FX::FXString& getName() const { return name; }
    FX::FXObject* getTarget() const { return target; }
    FX::FXSelector getSelector() const { return selector; }

    DataTargetReal(const DataTargetReal& other);
    DataTargetReal& operator=(const DataTargetReal& other);
    ~DataTargetReal() override;

private:
    DataTargetReal();
    DataTargetReal(const char* optionName, FX::FXObject* notified, FX::FXSelector message);

    FX::FXString name;
    double value = -9999999.0;
    FX::FXObject* target = nullptr;
    FX::FXSelector selector = 0;
};

/// A string option. An FXText gives its whole text; a tree list box stores the
/// label of the chosen item, and an update selects the first item whose label
/// contains the option's value (leaving it alone while the list is open). A
/// widget that already shows the value is not written to.
class DV_ENV_EXPORT DataTargetString : public DataTarget {
    FXDECLARE(DataTargetString)
public:
    /// A new data target for the option `name`, owned by the library. A host
    /// `target` may refuse each change by answering SEL_VERIFY with non-zero.
    ///
    ///     new FXTextField(box, 30, DataTargetString::get("CifOutHeader", this, ID_HEADER),
    ///                     DataTarget::ID_VALUE);
    static DataTargetString* get(const char* name, FX::FXObject* target, FX::FXSelector selector);

    /// Writes the widget's text to the option; see DataTargetBool::onCmdValue.
    /// Also 0 when `target` refuses the change.
    long onCmdValue(FX::FXObject* sender, FX::FXSelector sel, void* ptr);
    /// Shows the option's value in the widget. Always 1.
    long onUpdValue(FX::FXObject* sender, FX::FXSelector sel, void* ptr);

    const FX::FXString& getName() const { return name; }
    FX::FXObject* getTarget() const { return target; }
    FX::FXSelector getSelector() const { return selector; }

    DataTargetString(const DataTargetString& other);
    DataTargetString& operator=(const DataTargetString& other);
    ~DataTargetString() override;

private:
    DataTargetString();
    DataTargetString(const char* optionName, FX::FXObject* notified, FX::FXSelector message);

    FX::FXString name;
    FX::FXString value{"\\"};
    FX::FXObject* target = nullptr;
    FX::FXSelector selector = 0;
};

}  // namespace dv::env
