#ifndef OSTRUM_CONFIG_SETTINGS_H
#define OSTRUM_CONFIG_SETTINGS_H
// The configured values, grouped by who uses them. Written once, by start-up, before any context is
// handed out; read without a lock afterwards. Run-time objects live with their owners, never here.
#include <cstdint>

namespace ostrum {

inline constexpr int32_t path_bytes = 1024; // longest path, with its terminator

enum class lock_method : int32_t { mapped_mutex = 0, advisory_file_lock = 1 };

enum auto_flush_bits : int32_t { flush_between_ops = 1, flush_inside_ops = 2 };

enum error_counter_bits : int32_t {
    error_by_dbno = 0x1,
    error_by_program = 0x2,
    error_by_opcode = 0x4,
    error_by_class = 0x8,
    error_by_location = 0x10,
    error_by_errnum = 0x20
};

enum process_data_bits : int32_t { process_data_on = 0x1, process_data_register = 0x2 };

enum class period_unit : int32_t { minutes = 1, hours = 2 };

struct settings {
    // locks of the data file
    lock_method locks = lock_method::mapped_mutex;

    // where the files go
    const char* log_directory = nullptr; // heap text or a constant, kept for the life of the process
    bool single_file = false;
    char single_file_base[path_bytes] = "";       // "directory/prefix.pid"
    int32_t single_file_limit_bytes = 0x40000000; // rotation at this size; the default, too
    char data_file_name[path_bytes] = "";
    bool data_file_reset = false;

    // when trees are flushed
    int32_t max_log_size = 0; // outermost starts before a trace file is flushed and closed; 0 = any
    // Kept on purpose: the values of these three before start-up are not its defaults, which it always
    // stores.
    int32_t aggregation_period = 24;
    period_unit aggregation_unit = period_unit::hours;
    int64_t flush_frequency_tv = 3600;
    int64_t status_check_tv = 500'000'000; // 0 = at each operation
    int32_t auto_flush = 0;                // auto_flush_bits
    bool async_flushing = false;

    // what is recorded
    int32_t collect_cpu_levels = 0;  // levels, from the outermost, whose CPU time is measured
    int32_t error_counter_level = 0; // error_counter_bits, higher bits kept as configured
    int32_t log_correlation_in_call_stack = 0;
    int32_t flist_log_to_stdout = 0;
    int32_t alarm_log_at_limit = 0;
    int32_t process_data = 0; // process_data_bits
};

const settings& configured();
settings& settings_for_startup(); // start-up and tests only

} // namespace ostrum
#endif
