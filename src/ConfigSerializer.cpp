#include <dv/env/ConfigSerializer.h>

#include <iomanip>
#include <locale>
#include <utility>
#include <variant>

namespace dv::env {

namespace {

struct ValueWriter {
    std::ostream& os;

    void operator()(std::monostate) const { os << "<empty>"; }
    void operator()(const std::string& text) const { os << text; }
    void operator()(double number) const { os << number; }
    void operator()(int number) const { os << number; }
    void operator()(bool flag) const { os << flag; }
};

}  // namespace

ConfigSerializer::ConfigSerializer(std::list<ConfigParameter> params) : parameters(std::move(params)) {}

ConfigSerializer::ConfigSerializer(const ConfigSerializer& other) = default;

ConfigSerializer::ConfigSerializer(ConfigSerializer&& other) noexcept : parameters(std::move(other.parameters)) {
    other.parameters.clear();
}

ConfigSerializer& ConfigSerializer::operator=(const ConfigSerializer& other) = default;

ConfigSerializer& ConfigSerializer::operator=(ConfigSerializer&& other) noexcept {
    if (this != &other) {
        parameters = std::move(other.parameters);
        other.parameters.clear();
    }
    return *this;
}

ConfigSerializer::~ConfigSerializer() = default;

namespace {

// Numbers are written as the reader reads them, without a caller's digit
// grouping or decimal comma; the caller's locale comes back however write ends.
class ClassicNumbers {
public:
    explicit ClassicNumbers(std::ostream& stream) : os(stream), callers(stream.imbue(std::locale::classic())) {}
    ~ClassicNumbers() { os.imbue(callers); }
    ClassicNumbers(const ClassicNumbers&) = delete;
    ClassicNumbers& operator=(const ClassicNumbers&) = delete;

private:
    std::ostream& os;
    std::locale callers;
};

}  // namespace

void ConfigSerializer::write(std::ostream& os) {
    const ClassicNumbers classic(os);
    os << std::setprecision(17) << std::boolalpha;
    os << "[Dravik]\n";
    os << "DvLoadDefaults=true\n";
    for (const ConfigParameter& parameter : parameters) {
        // Checked before the name, so that a failing line leaves nothing behind.
        if (parameter.value.valueless_by_exception())
            throw std::bad_variant_access();
        os << parameter.name << '=';
        std::visit(ValueWriter{os}, parameter.value);
        os << '\n';
    }
}

}  // namespace dv::env
