#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>

#include <fmt/format.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "doctor/findings.h"

namespace ostrum_tool {
namespace {

constexpr uint64_t least_free_percent = 5;
constexpr double bytes_per_mb = 1e6;

// The directories that trace files go to, by who says so.
std::map<std::string, std::string> log_directories(const patient& subject)
{
    std::map<std::string, std::string> directories;
    const auto add = [&](const std::string& path, const std::string& who) {
        std::error_code error;
        const std::filesystem::path real = std::filesystem::canonical(path, error);
        directories.try_emplace(error ? path : real.string(), who);
    };
    for (const settings_source& source : subject.settings) {
        const std::string chosen = source.text_of("ostrum_logdir").text;
        add(source.resolved(chosen.empty() ? "." : chosen), source.who());
    }
    for (const host_process& host : subject.hosts) {
        for (const std::string& file : host.trace_files) {
            add(std::filesystem::path(file).parent_path().string(), list_text({host}));
        }
    }
    return directories;
}

void check_space(const std::string& path, finding_list& findings)
{
    struct statvfs room {};
    if (::statvfs(path.c_str(), &room) != 0 || room.f_blocks == 0) {
        return;
    }
    const uint64_t free_percent = room.f_bavail * 100 / room.f_blocks;
    if (free_percent < least_free_percent) {
        const double free_mb = static_cast<double>(room.f_bavail * room.f_frsize) / bytes_per_mb;
        findings.push_back(
            {severity::warning,
             fmt::format("{} is nearly full: {:.0f} MB, {}%, are free", path, free_mb, free_percent),
             "what cannot be written is lost"});
    }
    if (room.f_files > 0 && room.f_favail * 100 / room.f_files < least_free_percent) {
        findings.push_back({severity::warning,
                            fmt::format("{} has room for {} more files", path, room.f_favail),
                            "each thread and period has a trace file of its own"});
    }
}

} // namespace

void check_log_directories(const patient& subject, finding_list& findings)
{
    for (const auto& [path, who] : log_directories(subject)) {
        std::error_code error;
        if (!std::filesystem::is_directory(path, error)) {
            findings.push_back({severity::wrong, fmt::format("{}: {} is no directory", who, path),
                                "a process that starts with it does not log: make it, or set ostrum_logdir"});
        } else if (::access(path.c_str(), W_OK | X_OK) != 0) {
            findings.push_back(
                {severity::wrong,
                 fmt::format("{}: {} cannot be written to ({})", who, path, std::strerror(errno)),
                 "trace files are lost there"});
        } else {
            check_space(path, findings);
        }
    }
}

} // namespace ostrum_tool
