#ifndef OSTRUM_DATA_FILE_LAYOUT_H
#define OSTRUM_DATA_FILE_LAYOUT_H
// The data file, byte for byte. An external format: monitoring tools map the same file. All integers
// are little-endian; numbers of 32 bits stand zero-extended in 64-bit words, line numbers sign-extended.
#include <cstddef>
#include <cstdint>

#include <pthread.h>

namespace ostrum {

inline constexpr size_t text_bytes = 128; // fixed texts, with their terminator
inline constexpr size_t variable_value_bytes = 1024;
inline constexpr uint64_t max_counters = 4096;
inline constexpr uint64_t max_variables = 512;
inline constexpr uint64_t max_errors = 8192;
inline constexpr size_t header_lock_count = 5;

struct lock_slot {
    int64_t fd;            // advisory method: descriptor in the process that initialised the slot
    int64_t offset;        // advisory method: the slot's own offset, start of the locked bytes
    pthread_mutex_t mutex; // mutex method: process-shared
    const char* name;      // address in the initialising process; diagnostics only, never followed
};
static_assert(sizeof(lock_slot) == 64 && offsetof(lock_slot, offset) == 8);
static_assert(offsetof(lock_slot, mutex) == 16 && offsetof(lock_slot, name) == 56);

struct counter_entry {
    lock_slot lock;
    char opname[text_bytes]; // part of the key only when opcode is 0
    char program[text_bytes];
    char fname[text_bytes];
    char obj_type[text_bytes];
    uint64_t opcode;
    uint64_t opflags;
    int64_t lineno;
    uint64_t recs;
    uint64_t calls;
    uint64_t errors;
    uint64_t total_t; // ns
    uint64_t u_cpu_t; // ns
    uint64_t s_cpu_t; // ns
    int64_t db_number;
};
static_assert(sizeof(counter_entry) == 656);
static_assert(offsetof(counter_entry, opname) == 64 && offsetof(counter_entry, program) == 192);
static_assert(offsetof(counter_entry, fname) == 320 && offsetof(counter_entry, obj_type) == 448);
static_assert(offsetof(counter_entry, opcode) == 576 && offsetof(counter_entry, opflags) == 584);
static_assert(offsetof(counter_entry, lineno) == 592 && offsetof(counter_entry, recs) == 600);
static_assert(offsetof(counter_entry, calls) == 608 && offsetof(counter_entry, errors) == 616);
static_assert(offsetof(counter_entry, total_t) == 624 && offsetof(counter_entry, u_cpu_t) == 632);
static_assert(offsetof(counter_entry, s_cpu_t) == 640 && offsetof(counter_entry, db_number) == 648);

struct variable_entry {
    lock_slot lock;
    char name[text_bytes];
    char value[variable_value_bytes];
};
static_assert(sizeof(variable_entry) == 1216);
static_assert(offsetof(variable_entry, name) == 64 && offsetof(variable_entry, value) == 192);

struct error_entry {
    int64_t dbno;
    uint64_t opcode;
    char opname[text_bytes];
    char program[text_bytes];
    uint64_t err_class;
    uint64_t location;
    uint64_t errnum;
    uint64_t errcnt;
};
static_assert(sizeof(error_entry) == 304);
static_assert(offsetof(error_entry, dbno) == 0 && offsetof(error_entry, opcode) == 8);
static_assert(offsetof(error_entry, opname) == 16 && offsetof(error_entry, program) == 144);
static_assert(offsetof(error_entry, err_class) == 272 && offsetof(error_entry, location) == 280);
static_assert(offsetof(error_entry, errnum) == 288 && offsetof(error_entry, errcnt) == 296);

// The words of the process metrics, in the order of the file. From dbno_word on they are the data manager's
// own.
enum metric_word : size_t {
    counter_word, // updates
    u_cpu_word,   // ns
    s_cpu_word,   // ns
    rss_bytes_word,
    mem_bytes_word,
    children_word,
    threads_word,
    is_dm_word, // survives every reset
    dbno_word,
    shm_size_word,
    shm_used_word,
    shm_max_used_word,
    big_size_word,
    big_used_word,
    big_max_used_word,
    big_chunks_word,
    trans_op_word,
    trans_queued_word,
    trans_max_word,
    ops_done_total_word,
    ops_error_total_word,
    trans_done_total_word,
    trans_error_total_word,
    fe_connects_word,
    fe_connects_total_word,
    fe_connects_error_total_word,
    metric_word_count
};

struct process_metrics_area {
    uint64_t words[metric_word_count];
};
static_assert(sizeof(process_metrics_area) == 208);

struct data_file_image {
    char signature[32];
    lock_slot locks[header_lock_count]; // indexed by data_file_lock_type
    uint64_t pid;
    uint64_t reserved;
    counter_entry counters[max_counters];
    uint64_t counter_count;
    variable_entry variables[max_variables];
    uint64_t variable_count;
    int64_t variables_modified_tv;
    error_entry errors[max_errors];
    uint64_t error_count;
    process_metrics_area metrics;
};
static_assert(offsetof(data_file_image, locks) == 32);
static_assert(offsetof(data_file_image, pid) == 352 && offsetof(data_file_image, reserved) == 360);
static_assert(offsetof(data_file_image, counters) == 368);
static_assert(offsetof(data_file_image, counter_count) == 2'687'344);
static_assert(offsetof(data_file_image, variables) == 2'687'352);
static_assert(offsetof(data_file_image, variable_count) == 3'309'944);
static_assert(offsetof(data_file_image, variables_modified_tv) == 3'309'952);
static_assert(offsetof(data_file_image, errors) == 3'309'960);
static_assert(offsetof(data_file_image, error_count) == 5'800'328);
static_assert(offsetof(data_file_image, metrics) == 5'800'336);
static_assert(sizeof(data_file_image) == 5'800'544);

} // namespace ostrum
#endif
