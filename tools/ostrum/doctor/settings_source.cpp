#include "doctor/settings_source.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "conf_lines.h"
#include "output/value_text.h"

extern char** environ;

namespace ostrum_tool {
namespace {

constexpr const char* program = "ostrum"; // whose section is read
constexpr const char* key_prefix = "ostrum_";

std::map<std::string, std::string> own_environment()
{
    std::map<std::string, std::string> variables;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const size_t equals = text.find('=');
        if (equals != std::string::npos) {
            variables.emplace(text.substr(0, equals), text.substr(equals + 1));
        }
    }
    return variables;
}

// As the library reads numbers: whole in the configuration file, up to a blank in the environment.
bool parse_number(const std::string& text, bool whole, int32_t& number)
{
    char* behind = nullptr;
    errno = 0;
    const long parsed = std::strtol(text.c_str(), &behind, 0);
    const bool ends = *behind == '\0' || (!whole && std::isspace(static_cast<unsigned char>(*behind)) != 0);
    if (errno != 0 || behind == text.c_str() || !ends || (whole && parsed != static_cast<int32_t>(parsed))) {
        return false;
    }
    number = static_cast<int32_t>(parsed);
    return true;
}

} // namespace

settings_source::settings_source(std::string who, std::string directory,
                                 const std::map<std::string, std::string>& environment)
    : who_(std::move(who)), directory_(std::move(directory))
{
    for (const auto& [name, value] : environment) {
        const bool upper =
            std::none_of(name.begin(), name.end(), [](unsigned char c) { return std::islower(c) != 0; });
        if (name == "QEL_HOME" || (upper && lower_case(name).starts_with(key_prefix))) {
            environment_.emplace(lower_case(name), value);
        }
    }
    read_configuration();
}

void settings_source::read_configuration()
{
    std::vector<std::string> places{directory_ + "/qel.conf", "/etc/qel.conf"};
    if (environment_.contains("qel_home")) {
        places.push_back(environment_["qel_home"] + "/config/qel.conf");
    }
    for (size_t at = 0; at < places.size(); ++at) {
        std::error_code error;
        if (std::filesystem::is_regular_file(places[at], error)) {
            std::ifstream file(places[at]);
            const qel::conf_entries entries = qel::entries_of(file, program);
            configured_.insert(entries.begin(), entries.end()); // of a key's entries the first stays
            numbers_only_ = at == 2;
            return;
        }
    }
}

settings_source settings_source::here()
{
    return {"a start here", ".", own_environment()};
}

settings_source settings_source::of_process(const host_process& host)
{
    const std::string process = "/proc/" + std::to_string(host.pid);
    return {list_text({host}), process + "/cwd", environment_of(host.pid)};
}

std::string settings_source::resolved(const std::string& path) const
{
    return path.starts_with("/") ? path : directory_ + "/" + path;
}

setting_value settings_source::text_of(const std::string& key) const
{
    const auto configured = configured_.find(key);
    if (configured != configured_.end() && !numbers_only_) {
        return {true, configured->second, 0, true, "qel.conf"};
    }
    const auto variable = environment_.find(key);
    return variable != environment_.end() ? setting_value{true, variable->second, 0, true, "environment"}
                                          : setting_value{};
}

setting_value settings_source::number_of(const std::string& key) const
{
    setting_value value;
    const auto configured = configured_.find(key);
    if (configured != configured_.end() && parse_number(configured->second, true, value.number)) {
        return {true, configured->second, value.number, true, "qel.conf"};
    }
    const auto variable = environment_.find(key);
    if (variable != environment_.end()) {
        value.is_number = parse_number(variable->second, false, value.number);
        return {true, variable->second, value.number, value.is_number, "environment"};
    }
    if (configured != configured_.end()) {
        return {true, configured->second, 0, false, "qel.conf"};
    }
    return value;
}

std::vector<std::string> settings_source::keys() const
{
    std::vector<std::string> keys;
    for (const auto* entries : {&configured_, &environment_}) {
        for (const auto& [key, value] : *entries) {
            if (key != "qel_home") {
                keys.push_back(key);
            }
        }
    }
    return keys;
}

bool settings_source::same_settings(const settings_source& other) const
{
    std::error_code error;
    return configured_ == other.configured_ && environment_ == other.environment_ &&
           numbers_only_ == other.numbers_only_ &&
           std::filesystem::equivalent(directory_, other.directory_, error);
}

} // namespace ostrum_tool
