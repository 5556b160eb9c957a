#include "collector/configuration/configuration.h"

#include <toml++/toml.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <limits>
#include <sstream>
#include <utility>

#include "embedded/configuration/default.toml.h"

namespace tarvex::collector {
namespace {

std::string textOf(const char* variable) {
    const char* text = std::getenv(variable);
    return text != nullptr ? text : "";
}

std::filesystem::path defaultDirectory() {
    // A service manager may give several, with colons between them.
    if (const std::string state = textOf("STATE_DIRECTORY"); !state.empty()) return state.substr(0, state.find(':'));
    if (const std::string data = textOf("XDG_DATA_HOME"); data.starts_with('/'))
        return std::filesystem::path(data) / "tarvex-collector";
    const std::string home = textOf("HOME");
    if (home.empty()) throw ConfigurationError("there is no directory for the collector: HOME is not set");
    return std::filesystem::path(home) / ".local/share/tarvex-collector";
}

[[noreturn]] void refuse(const std::string& file, const std::string& key, const char* why) {
    throw ConfigurationError(file + ": \"" + key + "\" " + why);
}

/// Every key of a table must be one of the defaults, and of the same kind.
void checkKeys(const toml::table& given, const toml::table& known, const std::string& file, const std::string& where) {
    for (const auto& [key, value] : given) {
        const std::string name = std::string(where).append(key.str());
        const toml::node* expected = known.get(key.str());
        if (expected == nullptr) refuse(file, name, "is no key of a configuration");
        const bool isNumber =
            expected->is_number() && value.is_number() && (expected->is_floating_point() || value.is_integer());
        if (expected->type() != value.type() && !isNumber) refuse(file, name, "is of the wrong type");
        if (const auto* table = value.as_table())
            checkKeys(*table, *expected->as_table(), file, std::string(name).append("."));
    }
}

/// The values of a file, on top of the defaults.
class Values {
public:
    Values(std::string file, const toml::table& given, const toml::table& defaults)
        : file_(std::move(file)), given_(given), defaults_(defaults) {}

    std::string text(const char* key) const { return value<std::string>(key); }
    bool flag(const char* key) const { return value<bool>(key); }
    double seconds(const char* key) const {
        const auto number = value<double>(key);
        if (number >= 0) return number;
        refuse(file_, key, "is less than 0");
    }
    template <typename Number>
    Number number(const char* key, Number least, Number most = std::numeric_limits<Number>::max()) const {
        const auto number = value<std::int64_t>(key);
        if (std::cmp_greater_equal(number, least) && std::cmp_less_equal(number, most))
            return static_cast<Number>(number);
        refuse(file_, key, "is out of range");
    }
    std::vector<std::string> texts(const char* key) const {
        const auto given = given_.at_path(key);
        const auto node = given ? given : defaults_.at_path(key);
        std::vector<std::string> texts;
        for (const auto& element : *node.as_array()) {
            const auto text = element.value<std::string>();
            if (!text) refuse(file_, key, "holds something that is no text");
            texts.push_back(*text);
        }
        return texts;
    }
    Configuration::Listener listener(const std::string& name) const {
        const auto key = [&](const char* member) { return name + "." + member; };
        Configuration::Listener listener{.address = text(key("address").c_str()),
                                         .port = number<std::uint16_t>(key("port").c_str(), 0),
                                         .certificate = text(key("certificate").c_str()),
                                         .key = text(key("key").c_str()),
                                         .names = texts(key("names").c_str())};
        if (listener.certificate.empty() != listener.key.empty())
            refuse(file_, name, "has a certificate without a key, or the other way round");
        return listener;
    }

private:
    template <typename Value>
    Value value(const char* key) const {
        const auto given = given_.at_path(key).value<Value>();
        return given ? *given : defaults_.at_path(key).value_or(Value());
    }

    std::string file_;
    const toml::table& given_;
    const toml::table& defaults_;
};

toml::table parse(std::string_view text, const std::string& file) {
    try {
        return toml::parse(text, file);
    } catch (const toml::parse_error& error) {
        std::ostringstream why;
        why << file << ", line " << error.source().begin.line << ": " << error.description();
        throw ConfigurationError(why.str());
    }
}

toml::table parseFile(const std::filesystem::path& file) {
    if (file.empty()) return {};
    std::ifstream stream(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    if (!stream) throw ConfigurationError(file.string() + ": the file cannot be read");
    return parse(text, file.string());
}

bool isLoopback(const std::string& address) {
    return address.starts_with("127.") || address == "::1" || address == "localhost";
}

}  // namespace

std::string_view defaultConfiguration() {
    return embedded::configuration_default_toml;
}

Configuration readConfiguration(const std::filesystem::path& file) {
    const toml::table defaults = parse(defaultConfiguration(), "default.toml");
    const toml::table given = parseFile(file);
    checkKeys(given, defaults, file.string(), "");
    const Values values(file.string(), given, defaults);
    Configuration configuration;
    configuration.directory = values.text("directory");
    if (configuration.directory.empty()) configuration.directory = defaultDirectory();
    configuration.engine = values.text("engine");
    if (configuration.engine.empty())
        configuration.engine = "sqlite:" + (configuration.directory / "samples.sqlite").string();
    configuration.ingest = values.listener("ingest");
    configuration.isPlain = values.flag("ingest.plain");
    configuration.page = values.listener("page");
    configuration.limits = {.body = values.number<std::uint64_t>("limits.body", 1),
                            .connections = values.number("limits.connections", 1),
                            .connectionsOfAnAddress = values.number("limits.connections_of_an_address", 1),
                            .idle = values.number("limits.idle", 1),
                            .leastSpeed = values.number("limits.least_speed", 0)};
    configuration.needsEnrolment = values.flag("enrolment.required");
    const auto enrolled = values.texts("enrolment.identifiers");
    configuration.enrolled = {enrolled.begin(), enrolled.end()};
    configuration.retentionDays = values.number("retention.days", 0);
    configuration.expectedLight = values.seconds("expected.light");
    configuration.expectedDistance = values.seconds("expected.distance");
    if (configuration.isPlain && !isLoopback(configuration.ingest.address))
        throw ConfigurationError(file.string() + ": plain HTTP is for loopback, behind a proxy that ends TLS");
    if (configuration.page.certificate.empty() && !isLoopback(configuration.page.address))
        throw ConfigurationError(file.string() + ": the page has no certificate, and may then be on loopback only");
    return configuration;
}

}  // namespace tarvex::collector
