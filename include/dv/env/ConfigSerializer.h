#pragma once

#include <dv/env/ConfigRecorder.h>
#include <dv/env/Export.h>

#include <list>
#include <ostream>

namespace dv::env {

/// Writes configuration parameters as a command file that, read back with
/// `parseCommandFile`, first resets every option to its default and then
/// assigns each parameter:
///
///     auto configuration = dv::env::optionsRecorder()->getConfiguration();
///     dv::env::ConfigSerializer serializer(configuration->params());
///     std::ofstream file("run.cmd");
///     serializer.write(file);
///
/// gives
///
///     [Dravik]
///     DvLoadDefaults=true
///     ToolArcPrecValue=64
///
/// Values: text as it is (no quotes, no escapes), reals with 17 significant
/// digits so that they read back identical, integers in the stream's base,
/// booleans as "true" or "false", and a parameter with no value as "<empty>".
/// Text that is empty, has white space at an end, is wrapped in double quotes
/// or holds a line feed does not read back as written.
class DV_ENV_EXPORT ConfigSerializer {
public:
    explicit ConfigSerializer(std::list<ConfigParameter> parameters);
    ConfigSerializer(const ConfigSerializer& other);
    /// Takes the entries over and leaves `other` empty.
    ConfigSerializer(ConfigSerializer&& other) noexcept;
    ConfigSerializer& operator=(const ConfigSerializer& other);
    /// Takes the entries over and leaves `other` empty.
    ConfigSerializer& operator=(ConfigSerializer&& other) noexcept;
    ~ConfigSerializer();

    /// Writes the text; can be called again. Leaves the stream's precision at
    /// 17 and boolalpha set; neither flushes nor checks the stream. Throws
    /// std::bad_variant_access at a value left empty by an exception, after the
    /// lines before it.
    void write(std::ostream& os);

    std::list<ConfigParameter> parameters;
};

}  // namespace dv::env
