#include "readers/host_processes.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <sys/stat.h>
#include <unistd.h>

namespace ostrum_tool {
namespace {

namespace fs = std::filesystem;

// Processes come and go while /proc is read: what has gone has nothing.
std::vector<fs::path> entries_of(const fs::path& directory)
{
    std::vector<fs::path> entries;
    std::error_code error;
    for (fs::directory_iterator at(directory, error), end; !error && at != end; at.increment(error)) {
        entries.push_back(at->path());
    }
    return entries;
}

bool is_trace_file(const std::string& path)
{
    return path.ends_with(".plog.txt") || path.ends_with(".flog.txt");
}

struct sought_file {
    std::string path; // absolute
    struct stat status {};
    bool exists = false;
};

// True when the process has the file open, or one that had its name.
bool add_open_files(const fs::path& process, const sought_file& sought, host_process& host)
{
    bool uses_it = false;
    for (const fs::path& descriptor : entries_of(process / "fd")) {
        std::error_code error;
        const std::string target = fs::read_symlink(descriptor, error).string();
        struct stat status {};
        if (target.empty() || target.front() != '/' || ::stat(descriptor.c_str(), &status) != 0) {
            continue;
        }
        const bool same =
            sought.exists && status.st_dev == sought.status.st_dev && status.st_ino == sought.status.st_ino;
        const bool gone = target == sought.path + " (deleted)";
        uses_it = uses_it || same || gone;
        host.file_is_gone = host.file_is_gone || gone;
        if (is_trace_file(target)) {
            host.trace_files.push_back(target);
        }
    }
    return uses_it;
}

} // namespace

std::vector<host_process> hosts_of(const std::string& data_path)
{
    sought_file sought;
    std::error_code error;
    sought.path = fs::weakly_canonical(data_path, error).string();
    sought.exists = ::stat(data_path.c_str(), &sought.status) == 0;
    std::vector<host_process> hosts;
    for (const fs::path& process : entries_of("/proc")) {
        const std::string id = process.filename().string();
        if (id.find_first_not_of("0123456789") != std::string::npos || std::stoi(id) == ::getpid()) {
            continue;
        }
        host_process host;
        if (add_open_files(process, sought, host)) {
            host.pid = std::stoi(id);
            host.name = name_of_process(host.pid);
            hosts.push_back(std::move(host));
        }
    }
    std::sort(hosts.begin(), hosts.end(), [](const auto& a, const auto& b) { return a.pid < b.pid; });
    return hosts;
}

std::string name_of_process(int32_t pid)
{
    std::string name;
    std::getline(std::ifstream("/proc/" + std::to_string(pid) + "/comm"), name);
    return name;
}

std::string list_text(const std::vector<host_process>& hosts)
{
    std::string text;
    for (const host_process& host : hosts) {
        text += (text.empty() ? "" : ", ") + std::to_string(host.pid) + " (" + host.name + ")";
    }
    return text;
}

std::map<std::string, std::string> environment_of(int32_t pid)
{
    std::map<std::string, std::string> variables;
    std::ifstream file("/proc/" + std::to_string(pid) + "/environ", std::ios::binary);
    for (std::string entry; std::getline(file, entry, '\0');) {
        const size_t equals = entry.find('=');
        if (equals != std::string::npos) {
            variables.emplace(entry.substr(0, equals), entry.substr(equals + 1));
        }
    }
    return variables;
}

} // namespace ostrum_tool
