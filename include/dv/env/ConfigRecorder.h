#pragma once

#include <dv/env/Export.h>

#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <variant>

namespace dv::env {

/// A value of a configuration. The alternatives keep this order (index 1 string,
/// 2 real, 3 integer, 4 boolean); a default-constructed value holds no value.
/// Values of different alternatives never compare equal: the integer 1 is not
/// the boolean true.
using ConfigValue = std::variant<std::monostate, std::string, double, int, bool>;

/// One named value of a configuration.
struct ConfigParameter {
    std::string name;
    ConfigValue value;
};

/// A configuration: a plain list of named values, in the order they came.
/// Names need not be unique.
class DV_ENV_EXPORT IConfiguration {
public:
    IConfiguration() = default;
    IConfiguration(const IConfiguration&) = default;
    IConfiguration& operator=(const IConfiguration&) = default;
    virtual ~IConfiguration();

    /// The live list: callers may change it.
    virtual std::list<ConfigParameter>& params() = 0;
};

/// The configuration that recorders hand out.
class DV_ENV_EXPORT Configuration : public IConfiguration {
public:
    Configuration() = default;
    Configuration(const Configuration& other);
    Configuration(Configuration&& other) noexcept;
    Configuration& operator=(const Configuration& other);
    /// Takes over the entries of `other` and leaves it empty and usable.
    Configuration& operator=(Configuration&& other) noexcept;
    ~Configuration() override;

    std::list<ConfigParameter>& params() override;

    std::list<ConfigParameter> parameters;
};

/// A source of configurations.
class DV_ENV_EXPORT IConfigRecorder {
public:
    IConfigRecorder() = default;
    IConfigRecorder(const IConfigRecorder&) = default;
    IConfigRecorder& operator=(const IConfigRecorder&) = default;
    virtual ~IConfigRecorder();

    /// Forgets what was recorded.
    virtual void clear() = 0;
    /// A new configuration, owned by the caller and sharing nothing with the
    /// recorder.
    virtual std::unique_ptr<IConfiguration> getConfiguration() const = 0;
};

/// Joins the configurations of several recorders, in the order they were added:
///
///     dv::env::ConfigRecorder all;
///     all.addRecorder(dv::env::optionsRecorder());
///     all.addRecorder(myModuleRecorder);
///     auto configuration = all.getConfiguration();
///
/// Copies share their children: `clear` on one copy clears what the other
/// reports. Not locked: `addRecorder` must not overlap any other use.
class DV_ENV_EXPORT ConfigRecorder : public IConfigRecorder {
public:
    ConfigRecorder() = default;
    ConfigRecorder(const ConfigRecorder& other);
    ConfigRecorder(ConfigRecorder&& other) noexcept;
    ConfigRecorder& operator=(const ConfigRecorder& other);
    ConfigRecorder& operator=(ConfigRecorder&& other) noexcept;
    ~ConfigRecorder() override;

    /// Appends a child; there is no way to remove one.
    void addRecorder(std::shared_ptr<IConfigRecorder> recorder);

    /// Clears every child; the children stay.
    void clear() override;
    /// The children's configurations one after the other, nothing merged or
    /// sorted. Never null, also without children.
    std::unique_ptr<IConfiguration> getConfiguration() const override;

    std::list<std::shared_ptr<IConfigRecorder>> recorders;
};

/// What a run read of the option store, against every option's default. There
/// is one per process, reached through `optionsRecorder()`; reads with
/// `record` true feed it, and the defaults pass and registration tell it the
/// defaults. Every operation is safe to call from several threads.
class DV_ENV_EXPORT OptionsConfigRecorder : public IConfigRecorder {
public:
    OptionsConfigRecorder();
    OptionsConfigRecorder(const OptionsConfigRecorder&) = delete;
    OptionsConfigRecorder& operator=(const OptionsConfigRecorder&) = delete;
    ~OptionsConfigRecorder() override;

    /// Notes a read: the value of `name`, replacing an earlier one. The name is
    /// taken as spelled; case matters.
    void record(std::string_view name, const ConfigValue& value);
    /// Notes a default, unless `keepsNoDefault(name)`.
    void setDefault(std::string_view name, const ConfigValue& value);

    /// True for "DvImportFormat" and "DvExportFormat" (exactly so): they never
    /// get a default, so a recorded read of them is always listed, and a
    /// replayed run imports and exports as the recorded one did.
    static bool keepsNoDefault(std::string_view name);

    /// Forgets the reads; the defaults stay.
    void clear() override;
    /// The recorded reads whose value differs from the default or that have no
    /// default, in no particular order.
    std::unique_ptr<IConfiguration> getConfiguration() const override;

private:
    mutable std::mutex mutex;
    std::unordered_map<std::string, ConfigValue> defaults;
    std::unordered_map<std::string, ConfigValue> recorded;
};

/// The process-wide recorder of the option store, as a new shared pointer to the
/// one instance:
///
///     auto configuration = dv::env::optionsRecorder()->getConfiguration();
DV_ENV_EXPORT std::shared_ptr<IConfigRecorder> optionsRecorder();

}  // namespace dv::env
