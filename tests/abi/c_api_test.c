/* The exported interface from plain C, in a process without a platform: every call gets what a C caller
 * could pass it, null included, and the host goes on. */
#define _DEFAULT_SOURCE
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
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

static void helpers(void)
{
    size_t length = 0;
    char* text = NULL;
    EXPECT(ostrum_string_to_tv(NULL) == 0);
    EXPECT(ostrum_fmt_tv(1, NULL, 0, 9) != NULL);
    EXPECT(ostrum_tv_to_decimal(1) == NULL);
    free(base16_encode(NULL, 0, &length));
    free(base64_decode(NULL, 0, &length));
    EXPECT(string_builder_used(NULL) == 0 && string_builder_data(NULL) == NULL);
    EXPECT(string_builder_add_str(NULL, "a") == -1);
    string_builder_destroy(NULL);
    EXPECT(bt_insert(NULL, NULL, NULL, NULL) == BT_FAIL && bt_search(NULL, NULL) == NULL);
    EXPECT(bt_destroy(NULL) == BT_ERROR && bt_delete(NULL, NULL) == BT_NOT_FOUND);
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
    struct timeval left;
    EXPECT(ostrum_log_start_op(7, NULL, 0, NULL, NULL, 0, NULL, 0, 0, NULL) > 0);
    EXPECT(ostrum_log_start_fn(0, NULL, 0, NULL, NULL, 0, NULL, 0) > 0);
    EXPECT(ostrum_log_end_fn(0, NULL, 0, 1, NULL, NULL, 0, NULL, 0, 1, 2, 3) > 0);
    EXPECT(ostrum_log_end_op(7, NULL, 0, NULL, NULL, 0, NULL, 0, NULL, 0, 0, NULL) > 0);
    EXPECT(ostrum_log_end_default(0, 0, 0, 0) > 0); /* nothing is open */
    EXPECT(ostrum_log_start_op_key(pid, 5, 7, NULL, 0, NULL, NULL, 0, NULL, 0, 0, NULL) > 0);
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
    EXPECT(perf_flush_aggregation_tree(NULL, NULL, 0, 0, 0, 0, NULL) == -1);
    ostrum_sig_safe_set_callback(NULL);
    ostrum_sig_safe_exec_callback(NULL);
}

static void idle_wait(void)
{
    struct timeval none = {0, 0};
    EXPECT(ostrum_select(0, NULL, NULL, NULL, &none) == 0);
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

/* Runs in a directory of its own, where the data file and the trace files go. */
int main(void)
{
    if (setenv("OSTRUM_VAR_TIME", "3", 1) != 0) {
        return 2;
    }
    helpers();
    EXPECT(ostrum_init() == 0);
    EXPECT(ostrum_init_quiet() == 0);
    without_a_file();
    hooks();
    idle_wait();
    data_file();
    printf("%d failures\n", failures);
    return failures == 0 ? 0 : 1;
}
