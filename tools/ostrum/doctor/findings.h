#ifndef OSTRUM_TOOL_DOCTOR_FINDINGS_H
#define OSTRUM_TOOL_DOCTOR_FINDINGS_H
// What the doctor looks at, and what it says.
#include <string>
#include <vector>

#include "doctor/settings_source.h"
#include "readers/data_file.h"
#include "readers/data_locks.h"
#include "readers/host_processes.h"

namespace ostrum_tool {

enum class severity { ok, warning, wrong };

struct finding {
    severity level = severity::ok;
    std::string what, advice;
};
using finding_list = std::vector<finding>;

struct patient {
    std::string path;
    std::string unreadable;                // why the data file could not be read
    std::vector<unsigned char> image;      // empty then
    data_file file;                        // decoded
    std::vector<host_process> hosts;       // that use the file
    std::vector<settings_source> settings; // of the hosts, and of a process that is started here
};

// A check adds findings; none means that all is well.
struct doctor_check {
    const char* name;
    const char* fine; // what is said then
    bool needs_image;
    void (*run)(const patient& subject, finding_list& findings);
};

void check_data_file(const patient& subject, finding_list& findings);
void check_content(const patient& subject, finding_list& findings);
void check_processes(const patient& subject, finding_list& findings);
void check_locks(const patient& subject, finding_list& findings);
void check_room(const patient& subject, finding_list& findings);
void check_variables(const patient& subject, finding_list& findings);
void check_settings(const patient& subject, finding_list& findings);
void check_log_directories(const patient& subject, finding_list& findings);

} // namespace ostrum_tool
#endif
