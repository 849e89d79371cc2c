#ifndef OSTRUM_TOOL_READERS_HOST_PROCESSES_H
#define OSTRUM_TOOL_READERS_HOST_PROCESSES_H
// The processes that use a data file, as /proc shows them: those of other users only to root.
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace ostrum_tool {

struct host_process {
    int32_t pid = 0;
    std::string name;
    bool file_is_gone = false;            // it uses a file that no longer has this name
    std::vector<std::string> trace_files; // that it has open
};

// In order of their ids.
std::vector<host_process> hosts_of(const std::string& data_path);

// As the system shows it; empty when there is no such process.
std::string name_of_process(int32_t pid);

// "4711 (catalog_server), 4712 (dm)"; the names are as the processes have them.
std::string list_text(const std::vector<host_process>& hosts);

// What the environment held when the process started; empty when it cannot be read.
std::map<std::string, std::string> environment_of(int32_t pid);

} // namespace ostrum_tool
#endif
