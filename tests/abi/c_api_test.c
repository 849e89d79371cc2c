/* The exported interface from plain C, in a process without a platform: every call gets what a C caller
 * could pass it, null included, and the host goes on. */
#define _DEFAULT_SOURCE
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ostrum.h"
#include "ostrum_data.h"

static int failures;

#define EXPECT(condition)                                                                                    \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            printf("%s:%d: not so: %s\n", __FILE__, __LINE__, #condition);                                   \
            ++failures;                                                                                      \
        }                                                                                                    \
    } while (0)

static void without_a_file(void)
{
    EXPECT(ostrum_data_file_open(NULL) == NULL);
    EXPECT(ostrum_data_file_get_pid(NULL) == 0);
    EXPECT(ostrum_data_file_get_version(NULL) == NULL);
    ostrum_data_file_close(NULL);
    EXPECT(strcmp(ostrum_get_version(), "2.0.13") == 0);
    EXPECT(ostrum_get_build_date() && ostrum_get_build_platform() && ostrum_get_build_compiler());
}

static int32_t step(void* record, void* arg, int32_t depth)
{
    return record != NULL && arg == NULL && depth > 0 ? (int32_t)BT_CONTINUE : 0;
}

static void helpers(void)
{
    size_t length = 0;
    int64_t key = 0;
    char* text = NULL;
    char buf[64];
    string_builder* builder = string_builder_create(16);
    bt_tree* tree = bt_create(sizeof(int64_t), bt_eq, NULL);
    EXPECT(ostrum_string_to_tv(NULL) == 0);
    EXPECT(ostrum_fmt_tv(1, NULL, 0, 9) != NULL);
    EXPECT(ostrum_tv_to_decimal(1) == NULL && ostrum_tv_to_double(1000000000) > 0.9);
    EXPECT(ostrum_now_tv() > 0 && linux_gethrtime() > 0);
    EXPECT(strcmp(ostrum_fmt_pct_tv(1, 4, buf, sizeof(buf), 1), "25.0") == 0);
    ostrum_fmt_int_with_commas(1234567, buf, sizeof(buf));
    EXPECT(strcmp(buf, "1,234,567") == 0);
    EXPECT(trim_err_descr(7, NULL, NULL, buf, sizeof(buf)) == 0);
    free(base16_encode(NULL, 0, &length));
    free(base16_decode(NULL, 0, &length));
    free(base64_encode(NULL, 0, &length));
    free(base64_decode(NULL, 0, &length));
    EXPECT(string_builder_add_data(builder, "ab", 2) == 0 &&
           string_builder_add_strfmt(builder, "%d", 12) == 0);
    string_builder_reset(builder, 0);
    free(string_builder_take_data(builder));
    string_builder_destroy(builder);
    EXPECT(string_builder_used(NULL) == 0 && string_builder_data(NULL) == NULL);
    EXPECT(string_builder_add_str(NULL, "a") == -1 && string_builder_take_data(NULL) == NULL);
    string_builder_reset(NULL, 0);
    string_builder_destroy(NULL);
    EXPECT(bt_insert(NULL, &key, NULL, NULL) == BT_FAIL && bt_insert(tree, NULL, NULL, NULL) == BT_FAIL);
    EXPECT(bt_search(NULL, &key) == NULL);
    EXPECT(bt_insert(tree, &key, NULL, NULL) == BT_INSERTED && bt_count(tree) == 1 && bt_depth(tree) == 1);
    EXPECT(bt_walk(tree, NULL, step) == BT_CONTINUE);
    EXPECT(bt_walk_filtered(tree, NULL, step, step, NULL) == BT_CONTINUE);
    EXPECT(bt_gt(NULL, NULL) == 1 && bt_lt(NULL, NULL) == -1);
    EXPECT(bt_empty(tree) == BT_EMPTIED && bt_destroy(tree) == BT_EMPTIED);
    EXPECT(bt_destroy(NULL) == BT_ERROR && bt_delete(NULL, NULL) == BT_NOT_FOUND);
    EXPECT(bt_empty(NULL) == BT_ERROR && bt_depth(NULL) == 0 && bt_count(NULL) == 0);
    EXPECT(bt_walk(NULL, NULL, step) == BT_FAIL && bt_walk_filtered(NULL, NULL, step, step, NULL) == BT_FAIL);
    EXPECT(perfconf_str(NULL) == NULL && perfconf_int(NULL) == 0 && perfconf_bool(NULL) == 0);
    setenv("OSTRUM_SOME_KEY", "Yes", 1);
    EXPECT(perfconf_bool("ostrum_some_key") == 1);
    text = perfconf_str("ostrum_some_key");
    EXPECT(text && strcmp(text, "Yes") == 0);
    perfconf_free(&text);
    EXPECT(text == NULL);
    perfconf_free(NULL);
}

static void hooks(void)
{
    const int32_t pid = (int32_t)getpid();
    struct timeval left = {0, 0};
    EXPECT(ostrum_select(0, NULL, NULL, NULL, &left) == 0);
    EXPECT(ostrum_log_start_op(7, NULL, 0, NULL, NULL, 0, NULL, 0, 0, NULL) > 0);
    EXPECT(ostrum_log_start_fn(0, NULL, 0, NULL, NULL, 0, NULL, 0) > 0);
    EXPECT(ostrum_log_end_fn(0, NULL, 0, 1, NULL, NULL, 0, NULL, 0, 1, 2, 3) > 0);
    EXPECT(ostrum_log_end_op(7, NULL, 0, NULL, NULL, 0, NULL, 0, NULL, 0, 0, NULL) > 0);
    EXPECT(ostrum_log_end_default(0, 0, 0, 0) > 0); /* nothing is open */
    EXPECT(ostrum_log_start_op_key(pid, 5, 7, NULL, 0, NULL, NULL, 0, NULL, 0, 0, NULL) > 0);
    EXPECT(ostrum_log_end_op_key(pid, 5, 7, NULL, 0, NULL, NULL, 0, NULL, 0, NULL, 0, 0, NULL) > 0);
    EXPECT(ostrum_log_end_default_key(pid, 5, 0, 0, 0, 0) > 0);
    EXPECT(ostrum_log_start_fn_key(pid, -2, 0, NULL, 0, NULL, NULL, 0, NULL, 0) > 0); /* invalid key */
    EXPECT(ostrum_log_end_fn_key(pid, -2, 0, NULL, 0, 0, NULL, NULL, 0, NULL, 0, 0, 0, 0) > 0);
    EXPECT(ostrum_get_liptr_by_key(pid, -2) == NULL && ostrum_get_liptr_by_key(pid, 5) != NULL);
    EXPECT(ostrum_get_time_to_period_end(NULL, &left) == NULL);
    EXPECT(ostrum_get_time_to_period_end(ostrum_get_liptr_by_key(pid, 5), NULL) == NULL);
    EXPECT(ostrum_get_time_to_period_end(ostrum_get_liptr_by_key(pid, 5), &left) == &left);
    ostrum_release_liptr_by_key(pid, 5);
    ostrum_release_liptr_by_key(pid, 77);
    EXPECT(strcmp(ostrum_get_opname(-2, NULL), "VRT_OP_ELAPSED") == 0);
    EXPECT(strcmp(ostrum_get_opname(-3, NULL), "unknown_operation") == 0);
    EXPECT(ostrum_get_object_xoid(7, NULL, NULL, NULL, 0) == 0);
    EXPECT(ostrum_rename_trace_file(NULL, NULL, "new") == 0);
    EXPECT(ostrum_rename_alarm_file(NULL, "old", NULL) == 0);
    EXPECT(perf_flush_aggregation_tree(NULL, NULL, 0, 0, 0, 0, NULL) == -1);
    ostrum_sig_safe_set_callback(NULL);
    ostrum_sig_safe_exec_callback(NULL);
}

static void data_file(void)
{
    rt_info* file = NULL;
    EXPECT(ostrum_data_file_get() != NULL);
    file = ostrum_data_file_open("ostrum_data.dat");
    EXPECT(file != NULL);
    EXPECT(ostrum_data_file_get_pid(file) == (int32_t)getpid());
    EXPECT(file && strcmp(ostrum_data_file_get_version(file), "ostrum-64bit\n") == 0);
    ostrum_data_file_close(file);
}

/* ---- Records: each word and text is what says where it stands, so that no getter can read another one ----
 */

enum {
    metrics_at = 5800336,
    counter_at = 368,
    counters_used_at = 2687344,
    error_at = 3309960,
    errors_used_at = 5800328
};

static int64_t mark(int64_t offset)
{
    return 1000 + offset;
}

static void put_word(int fd, off_t at, int64_t value)
{
    EXPECT(pwrite(fd, &value, sizeof(value), at) == (ssize_t)sizeof(value));
}

static void put_text(int fd, off_t record_at, int offset)
{
    char text[16] = "";
    const int length = snprintf(text, sizeof(text), "text%d", offset);
    EXPECT(pwrite(fd, text, (size_t)length + 1, record_at + offset) == length + 1);
}

static void mark_records(int fd)
{
    int offset;
    for (offset = 576; offset <= 648; offset += 8) {
        put_word(fd, counter_at + offset, mark(offset));
    }
    for (offset = 64; offset <= 448; offset += 128) {
        put_text(fd, counter_at, offset);
    }
    put_word(fd, counters_used_at, 1);
    for (offset = 272; offset <= 296; offset += 8) {
        put_word(fd, error_at + offset, mark(offset));
    }
    put_word(fd, error_at, mark(0));
    put_word(fd, error_at + 8, mark(8));
    put_text(fd, error_at, 16);
    put_text(fd, error_at, 144);
    put_word(fd, errors_used_at, 1);
    for (offset = 0; offset <= 48; offset += 8) {
        put_word(fd, metrics_at + offset, mark(offset));
    }
}

/* Each also takes a null record, which reads as 0 or empty. */
#define NUMBER(get, offset) EXPECT((int64_t)get(record) == (record ? mark(offset) : 0))
#define TEXT(get, offset) EXPECT(strcmp(get(record), record ? "text" #offset : "") == 0)
#define SECONDS(get, offset)                                                                                 \
    do {                                                                                                     \
        char expected[32] = "";                                                                              \
        char buf[32] = "x";                                                                                  \
        NUMBER(get, offset);                                                                                 \
        if (record) {                                                                                        \
            snprintf(expected, sizeof(expected), "0.%09d", (int)mark(offset));                               \
        }                                                                                                    \
        EXPECT(get##_str(record, buf, sizeof(buf)) == buf && strcmp(buf, expected) == 0);                    \
        EXPECT(!get##_str(NULL, NULL, 0));                                                                   \
    } while (0)

static void read_counter(const ostrum_counter* record)
{
    NUMBER(ostrum_counter_get_opcode, 576);
    NUMBER(ostrum_counter_get_opflags, 584);
    NUMBER(ostrum_counter_get_lineno, 592);
    NUMBER(ostrum_counter_get_recs, 600);
    NUMBER(ostrum_counter_get_calls, 608);
    NUMBER(ostrum_counter_get_errors, 616);
    SECONDS(ostrum_counter_get_total_t, 624);
    SECONDS(ostrum_counter_get_u_cpu_t, 632);
    SECONDS(ostrum_counter_get_s_cpu_t, 640);
    NUMBER(ostrum_counter_get_db_number, 648);
    TEXT(ostrum_counter_get_opname, 64);
    TEXT(ostrum_counter_get_program, 192);
    TEXT(ostrum_counter_get_fname, 320);
    TEXT(ostrum_counter_get_obj_type, 448);
}

static void read_error(const ostrum_error* record)
{
    NUMBER(ostrum_error_get_dbno, 0);
    NUMBER(ostrum_error_get_opcode, 8);
    TEXT(ostrum_error_get_opname, 16);
    TEXT(ostrum_error_get_program, 144);
    NUMBER(ostrum_error_get_class, 272);
    NUMBER(ostrum_error_get_location, 280);
    NUMBER(ostrum_error_get_errnum, 288);
    NUMBER(ostrum_error_get_errcnt, 296);
}

static void read_metrics(const ostrum_proc_metrics* record)
{
    NUMBER(ostrum_proc_metrics_get_counter, 0);
    SECONDS(ostrum_proc_metrics_get_u_cpu, 8);
    SECONDS(ostrum_proc_metrics_get_s_cpu, 16);
    NUMBER(ostrum_proc_metrics_get_rss_bytes, 24);
    NUMBER(ostrum_proc_metrics_get_mem_bytes, 32);
    NUMBER(ostrum_proc_metrics_get_children, 40);
    NUMBER(ostrum_proc_metrics_get_threads, 48);
    EXPECT(ostrum_proc_metrics_get_is_dm(record) == (record ? 1 : 0));
    NUMBER(ostrum_proc_metrics_get_dbno, 64);
    NUMBER(ostrum_proc_metrics_get_shm_size, 72);
    NUMBER(ostrum_proc_metrics_get_shm_used, 80);
    NUMBER(ostrum_proc_metrics_get_shm_max_used, 88);
    NUMBER(ostrum_proc_metrics_get_big_size, 96);
    NUMBER(ostrum_proc_metrics_get_big_used, 104);
    NUMBER(ostrum_proc_metrics_get_big_max_used, 112);
    NUMBER(ostrum_proc_metrics_get_big_chunks, 120);
    NUMBER(ostrum_proc_metrics_get_trans_op, 128);
    NUMBER(ostrum_proc_metrics_get_trans_queued, 136);
    NUMBER(ostrum_proc_metrics_get_trans_max, 144);
    NUMBER(ostrum_proc_metrics_get_ops_done_total, 152);
    NUMBER(ostrum_proc_metrics_get_ops_error_total, 160);
    NUMBER(ostrum_proc_metrics_get_trans_done_total, 168);
    NUMBER(ostrum_proc_metrics_get_trans_error_total, 176);
    NUMBER(ostrum_proc_metrics_get_fe_connects, 184);
    NUMBER(ostrum_proc_metrics_get_fe_connects_total, 192);
    NUMBER(ostrum_proc_metrics_get_fe_connects_error_total, 200);
}

/* All lists of a file with one record of each kind, or of none. */
static void queries(rt_info* file)
{
    const int32_t there = file ? 1 : 0;
    int32_t counts[5] = {7, 7, 7, 7, 7};
    ostrum_counter** plain = ostrum_counters_get(file, 0, &counts[0]);
    ostrum_counter** merged = ostrum_counters_get_aggr(file, 0, &counts[1], OSTRUM_BY_OPCODE);
    ostrum_error** errors = ostrum_errors_get(file, 0, &counts[2]);
    ostrum_error** classes = ostrum_errors_get_aggr(file, 0, &counts[3], OSTRUM_ERROR_BY_CLASS);
    ostrum_variable** variables = NULL;
    ostrum_proc_metrics* metrics = ostrum_proc_metrics_get(file);
    EXPECT(ostrum_variable_set(file, "c_api", "a value") == there - 1);
    variables = ostrum_variables_get(file, "c_api", &counts[4]);
    EXPECT(counts[0] == there && counts[1] == there && counts[2] == there && counts[3] == there &&
           counts[4] == there);
    read_counter(plain ? plain[0] : NULL);
    read_error(errors ? errors[0] : NULL);
    read_metrics(metrics);
    EXPECT(!file || (ostrum_counter_get_calls(merged[0]) == mark(608) && !merged[1]));
    EXPECT(!file || (ostrum_error_get_errcnt(classes[0]) == mark(296) && !classes[1]));
    EXPECT(strcmp(ostrum_variable_get_name(variables ? variables[0] : NULL), file ? "c_api" : "") == 0);
    EXPECT(strcmp(ostrum_variable_get_value(variables ? variables[0] : NULL), file ? "a value" : "") == 0);
    ostrum_counters_destroy(plain);
    ostrum_counters_destroy(merged);
    ostrum_errors_destroy(errors);
    ostrum_errors_destroy(classes);
    ostrum_variables_destroy(variables);
    ostrum_proc_metrics_destroy(metrics);
}

static void resets(rt_info* file)
{
    ostrum_counter** counters = NULL;
    ostrum_error** errors = NULL;
    ostrum_proc_metrics* metrics = NULL;
    ostrum_counters_reset(file);
    ostrum_errors_reset(file);
    ostrum_proc_metrics_reset(file);
    counters = ostrum_counters_get(file, 0, NULL);
    errors = ostrum_errors_get(file, 0, NULL);
    metrics = ostrum_proc_metrics_get(file);
    EXPECT(ostrum_counter_get_calls(counters ? counters[0] : NULL) == 0);
    EXPECT(ostrum_error_get_errcnt(errors ? errors[0] : NULL) == 0);
    EXPECT(ostrum_proc_metrics_get_counter(metrics) == 0 && ostrum_proc_metrics_get_dbno(metrics) == 0);
    ostrum_counters_destroy(counters);
    ostrum_errors_destroy(errors);
    ostrum_proc_metrics_destroy(metrics);
}

static void records(void)
{
    const int fd = open("ostrum_data.dat", O_RDWR);
    ostrum_proc_metrics_set_cm_data(); /* writes nothing: sampling is off */
    ostrum_proc_metrics_set_dm_data(1064, 1072, 1080, 1088, 1096, 1104, 1112, 1120, 1128, 1136, 1144, 1152,
                                    1160, 1168, 1176, 1184, 1192, 1200);
    mark_records(fd);
    queries(NULL);
    queries(ostrum_data_file_get());
    resets(NULL);
    resets(ostrum_data_file_get());
    close(fd);
}

static void renaming(rt_info* file)
{
    int32_t (*const calls[])(rt_info*, const char*, const char*) = {ostrum_rename_trace_file,
                                                                    ostrum_rename_alarm_file};
    size_t i;
    for (i = 0; i < 2; ++i) {
        close(open("finished", O_CREAT | O_WRONLY, 0600));
        unlink("collected");
        EXPECT(calls[i](file, "finished", "collected") == 0 && access("collected", F_OK) == 0);
        EXPECT(calls[i](file, "finished", "collected") == 0); /* no longer there */
        EXPECT(calls[i](file, NULL, NULL) == 0);
    }
}

/* A host must have its first three words only, also where field lists and errors are traced. */
static void short_error_buffer(void)
{
    const int32_t error[3] = {1, 2, 37};
    const size_t page = (size_t)sysconf(_SC_PAGESIZE);
    char* pages = mmap(NULL, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    char* ebuf = pages + page - sizeof(error);
    EXPECT(pages != MAP_FAILED && mprotect(pages + page, page, PROT_NONE) == 0);
    memcpy(ebuf, error, sizeof(error));
    EXPECT(ostrum_log_start_op(7, "op", 0, NULL, "c.c", 1, "", 0, 0, ebuf) > 0);
    EXPECT(ostrum_log_end_op(7, "op", 0, NULL, NULL, 0, "c.c", 1, "", 0, 0, ebuf) > 0);
    munmap(pages, 2 * page);
}

static void fatal_signal(void)
{
    int status = 0;
    const pid_t child = fork();
    if (child == 0) {
        ostrum_fatal_sig_handler(SIGUSR1);
        _exit(0);
    }
    EXPECT(waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 1);
}

/* Runs in a directory of its own, where the data file and the trace files go. */
int main(void)
{
    if (setenv("OSTRUM_VAR_TIME", "3", 1) != 0 || setenv("OSTRUM_VAR_FLIST", "2", 1) != 0 ||
        setenv("OSTRUM_VAR_TRACE_OPCODES", "7", 1) != 0 || setenv("OSTRUM_DATA_FILE_RESET", "1", 1) != 0) {
        return 2;
    }
    helpers();
    EXPECT(ostrum_init() == 0);
    EXPECT(ostrum_init_quiet() == 0);
    without_a_file();
    short_error_buffer();
    hooks();
    data_file();
    records();
    renaming(NULL);
    renaming(ostrum_data_file_get());
    fatal_signal();
    printf("%d failures\n", failures);
    return failures == 0 ? 0 : 1;
}
