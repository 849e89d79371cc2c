#ifndef OSTRUM_TOOL_DOCTOR_SETTINGS_SOURCE_H
#define OSTRUM_TOOL_DOCTOR_SETTINGS_SOURCE_H
// The settings of one process: the platform's configuration file, and the environment behind it.
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "readers/host_processes.h"

namespace ostrum_tool {

struct setting_value {
    bool is_set = false;
    std::string text;
    int32_t number = 0;    // 0 also when the text is no number
    bool is_number = true; // false: the text counts as unset
    std::string from;      // "qel.conf" or "environment"
};

class settings_source {
public:
    // Of a process that is started here; of one that runs.
    static settings_source here();
    static settings_source of_process(const host_process& host);

    [[nodiscard]] const std::string& who() const { return who_; }
    // A path as that process takes it.
    [[nodiscard]] std::string resolved(const std::string& path) const;
    [[nodiscard]] setting_value text_of(const std::string& key) const;
    [[nodiscard]] setting_value number_of(const std::string& key) const;
    // All keys that are set, in lower case, whether the library knows them or not.
    [[nodiscard]] std::vector<std::string> keys() const;

    void add_process(const std::string& who) { who_ += ", " + who; }
    [[nodiscard]] bool same_settings(const settings_source& other) const;

private:
    settings_source(std::string who, std::string directory,
                    const std::map<std::string, std::string>& environment);
    void read_configuration();

    std::string who_, directory_;
    std::map<std::string, std::string> configured_, environment_; // the latter by lower-case key
    bool numbers_only_ = false; // the file in $QEL_HOME is asked for numbers alone
};

} // namespace ostrum_tool
#endif
