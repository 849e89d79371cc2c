#include "startup/data_file_name.h"

#include <cstdio>
#include <cstring>

#include "host_abi/host_services.h"
#include "os/os_calls.h"
#include "util/diagnostics.h"
#include "util/local_time.h"

namespace ostrum {

namespace {

constexpr int name_room_bytes = path_bytes - 1; // kept: one byte of it is always left over
constexpr size_t part_bytes = 64;               // of one replacement

// What the template's parts stand for, read once for the whole name.
struct name_facts {
    int32_t pid;
    time_t seconds; // the host's virtual time
};

bool print_local_time(char (&part)[part_bytes], time_t seconds)
{
    tm fields{};
    if (!local_fields(seconds, fields)) {
        err_print("build_data_file_name : cannot get localtime for time[%d]\n",
                  static_cast<int32_t>(seconds));
        return false;
    }
    return strftime(part, sizeof(part), "%Y%m%d%H%M%S", &fields) > 0;
}

// Length of what stands at this place of the template; its replacement is in part. 0 after a failure.
size_t read_part(const char* at, const name_facts& facts, char (&part)[part_bytes])
{
    if (strncmp(at, "%p", 2) == 0) {
        snprintf(part, sizeof(part), "%d", facts.pid);
        return 2;
    }
    if (strncmp(at, "%t", 2) == 0) {
        snprintf(part, sizeof(part), "%d", static_cast<int32_t>(facts.seconds));
        return 2;
    }
    if (strncmp(at, "%T", 2) == 0) {
        return print_local_time(part, facts.seconds) ? 2 : 0;
    }
    part[0] = *at;
    part[1] = '\0';
    return 1;
}

} // namespace

bool build_data_file_name(const char* name_template, char (&out)[path_bytes])
{
    const name_facts facts{os::process_id(),
                           qel_virtual_time != nullptr ? qel_virtual_time(nullptr) : os::wall_seconds()};
    size_t length = 0;
    out[0] = '\0';
    for (const char* at = name_template; *at != '\0';) {
        char part[part_bytes];
        const size_t consumed = read_part(at, facts, part);
        if (consumed == 0) {
            return false;
        }
        at += consumed;
        const size_t added = strlen(part);
        if (length + added >= static_cast<size_t>(name_room_bytes)) {
            err_print("build_data_file_name : cannot encode template[%s] in %d bytes\n", name_template,
                      name_room_bytes);
            return false;
        }
        memcpy(out + length, part, added + 1);
        length += added;
    }
    return true;
}

} // namespace ostrum
