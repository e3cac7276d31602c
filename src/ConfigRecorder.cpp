#include <dv/env/ConfigRecorder.h>

#include "OptionsRecorder.h"

#include <utility>

namespace dv::env {

IConfiguration::~IConfiguration() = default;
IConfigRecorder::~IConfigRecorder() = default;

Configuration::Configuration(const Configuration& other) : IConfiguration(other), parameters(other.parameters) {}

Configuration::Configuration(Configuration&& other) noexcept : parameters(std::move(other.parameters)) {
    other.parameters.clear();
}

Configuration& Configuration::operator=(const Configuration& other) {
    parameters = other.parameters;
    return *this;
}

Configuration& Configuration::operator=(Configuration&& other) noexcept {
    if (this != &other) {
        parameters = std::move(other.parameters);
        other.parameters.clear();
    }
    return *this;
}

Configuration::~Configuration() = default;

std::list<ConfigParameter>& Configuration::params() { return parameters; }

ConfigRecorder::ConfigRecorder(const ConfigRecorder& other) : IConfigRecorder(other), recorders(other.recorders) {}

ConfigRecorder::ConfigRecorder(ConfigRecorder&& other) noexcept : recorders(std::move(other.recorders)) {
    other.recorders.clear();
}

ConfigRecorder& ConfigRecorder::operator=(const ConfigRecorder& other) {
    if (this != &other)
        recorders = other.recorders;
    return *this;
}

ConfigRecorder& ConfigRecorder::operator=(ConfigRecorder&& other) noexcept {
    if (this != &other) {
        recorders = std::move(other.recorders);
        other.recorders.clear();
    }
    return *this;
}

ConfigRecorder::~ConfigRecorder() = default;

void ConfigRecorder::addRecorder(std::shared_ptr<IConfigRecorder> recorder) {
    recorders.push_back(std::move(recorder));
}

void ConfigRecorder::clear() {
    for (const auto& recorder : recorders)
        recorder->clear();
}

std::unique_ptr<IConfiguration> ConfigRecorder::getConfiguration() const {
    auto joined = std::make_unique<Configuration>();
    for (const auto& recorder : recorders) {
        std::unique_ptr<IConfiguration> part = recorder->getConfiguration();
        joined->parameters.splice(joined->parameters.end(), part->params());
    }
    return joined;
}

OptionsConfigRecorder::OptionsConfigRecorder() = default;
OptionsConfigRecorder::~OptionsConfigRecorder() = default;

void OptionsConfigRecorder::record(std::string_view name, const ConfigValue& value) {
    std::lock_guard<std::mutex> lock(mutex);
    recorded[std::string(name)] = value;
}

bool OptionsConfigRecorder::keepsNoDefault(std::string_view name) {
    return name == "DvImportFormat" || name == "DvExportFormat";
}

void OptionsConfigRecorder::setDefault(std::string_view name, const ConfigValue& value) {
    if (keepsNoDefault(name))
        return;
    std::lock_guard<std::mutex> lock(mutex);
    defaults[std::string(name)] = value;
}

void OptionsConfigRecorder::clear() {
    std::lock_guard<std::mutex> lock(mutex);
    recorded.clear();
}

std::unique_ptr<IConfiguration> OptionsConfigRecorder::getConfiguration() const {
    auto configuration = std::make_unique<Configuration>();
    std::lock_guard<std::mutex> lock(mutex);
    for (const auto& [name, value] : recorded) {
        const auto known = defaults.find(name);
        if (known != defaults.end() && known->second == value)
            continue;
        configuration->parameters.push_back(ConfigParameter{name, value});
    }
    return configuration;
}

namespace internal {

std::shared_ptr<OptionsConfigRecorder> optionsRecorderInstance() {
    static const auto instance = std::make_shared<OptionsConfigRecorder>();
    return instance;
}

}  // namespace internal

std::shared_ptr<IConfigRecorder> optionsRecorder() { return internal::optionsRecorderInstance(); }

}  // namespace dv::env
