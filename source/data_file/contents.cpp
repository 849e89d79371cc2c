#include "data_file/contents.h"

#include "config/setting_text.h"
#include "data_file/metric_words.h"
#include "data_file/table_access.h"
#include "data_file/variables.h"
#include "host_access/opcode_list.h"
#include "util/diagnostics.h"

namespace ostrum {

namespace {

struct initial_variable {
    const char* key;
    const char* name;
};
constexpr initial_variable plain_variables[] = {
    {"ostrum_var_time", "time_on"},
    {"ostrum_var_flist", "flist_on"},
    {"ostrum_var_alarm", "alarm_on"},
};

// Bodies of entries stay as they are: they are free space from here on.
void empty_tables(data_file_image& image)
{
    store_total(image.counter_count, 0);
    store_total(image.variable_count, 0);
    std::atomic_ref(image.variables_modified_tv).store(0, std::memory_order_relaxed);
    store_total(image.error_count, 0);
    image.reserved = 0;
}

void set_traced_opcodes(rt_info& handle)
{
    const setting_text list = configured_text("ostrum_var_trace_opcodes");
    if (!list) {
        return;
    }
    char normalised[variable_value_bytes] = "";
    if (normalize_oplist(normalised, sizeof normalised, list.get()) != 0) {
        err_print("Invalid 'ostrum_var_trace_opcodes' configuration - will be ignored\n");
        normalised[0] = '\0';
    }
    perf_data_file_var_set(&handle, nullptr, "trace_opcodes", normalised);
}

void set_initial_variables(rt_info& handle)
{
    for (const initial_variable& variable : plain_variables) {
        const setting_text value = configured_text(variable.key);
        if (value) {
            perf_data_file_var_set(&handle, nullptr, variable.name, value.get());
        }
    }
    set_traced_opcodes(handle);
}

} // namespace

void reset_contents(rt_info& handle)
{
    empty_tables(*handle.image);
    set_initial_variables(handle);
    clear_metric_words(handle.image->metrics);
    rt_variables_debug(&handle, "INITIAL VARIABLE SETTINGS");
}

} // namespace ostrum
