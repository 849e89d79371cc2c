/* A monitoring program: shows what the data file of a traced server holds, while the server runs, and
 * steers the server through the file's variables. Everything comes from the public header; a tool needs
 * no platform and no setting. */
#include <inttypes.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "ostrum_data.h"

enum { EXIT_DONE = 0, EXIT_NOT_DONE = 1, EXIT_USAGE = 2 };

static const char usage[] =
    "usage: monitor [-r] [-s NAME=VALUE]... DATA_FILE\n"
    "Prints counters, errors, variables and process metrics of an Ostrum data file.\n"
    "  -r             clear counters and errors as they are read: the next run shows\n"
    "                 what has come since\n"
    "  -s NAME=VALUE  set a variable first; traced processes notice it within their\n"
    "                 status check interval (half a second unless configured)\n"
    "Exit status: 0 done, 1 no such data file or variable not set, 2 wrong usage\n";

/* What the caller asked for; the settings are NAME=VALUE arguments, cut apart where they stand. */
struct request {
    const char* path;
    char* settings[16];
    int setting_count;
    int reset;
};

/* The version text ends with a line end. */
static void print_heading(const rt_info* file, const char* path)
{
    const char* const version = ostrum_data_file_get_version(file);
    printf("%s: version %.*s, last opened by process %" PRId32 "\n", path, (int)strcspn(version, "\n"),
           version, ostrum_data_file_get_pid(file));
}

/* One record for each operation: all other key fields are merged. Counts and clearing happen under the
 * file's lock, so that no call is lost between this snapshot and the next. */
static void print_counters(rt_info* file, int reset)
{
    int32_t count = 0;
    ostrum_counter** counters = ostrum_counters_get_aggr(file, reset, &count, OSTRUM_BY_OPCODE);
    printf("\ncounters by operation: %d%s\n", count, reset ? ", cleared as they were read" : "");
    if (count > 0)
        printf("%7s  %-24s %10s %8s %10s %16s\n", "opcode", "operation", "calls", "errors", "records",
               "seconds");
    for (int32_t i = 0; i < count; ++i) {
        const ostrum_counter* counter = counters[i];
        char seconds[32];
        printf("%7" PRIu32 "  %-24s %10" PRId64 " %8" PRId64 " %10" PRId64 " %16s\n",
               ostrum_counter_get_opcode(counter), ostrum_counter_get_opname(counter),
               ostrum_counter_get_calls(counter), ostrum_counter_get_errors(counter),
               ostrum_counter_get_recs(counter),
               ostrum_counter_get_total_t_str(counter, seconds, sizeof seconds));
    }
    ostrum_counters_destroy(counters);
}

/* The error query has field bits of its own. A list can as well be walked to the null at its end. */
static void print_errors(rt_info* file, int reset)
{
    int32_t count = 0;
    ostrum_error** errors =
        ostrum_errors_get_aggr(file, reset, &count, OSTRUM_ERROR_BY_OPCODE | OSTRUM_ERROR_BY_ERRNUM);
    printf("\nerrors by operation and number: %d%s\n", count, reset ? ", cleared as they were read" : "");
    for (ostrum_error** error = errors; error != NULL && *error != NULL; ++error)
        printf("%7" PRId64 "  %-24s error %5" PRIu32 " %10" PRId64 " times\n",
               ostrum_error_get_opcode(*error), ostrum_error_get_opname(*error),
               ostrum_error_get_errnum(*error), ostrum_error_get_errcnt(*error));
    ostrum_errors_destroy(errors);
}

static void print_variables(rt_info* file)
{
    int32_t count = 0;
    ostrum_variable** variables = ostrum_variables_get(file, NULL, &count);
    printf("\nvariables: %d\n", count);
    for (int32_t i = 0; i < count; ++i)
        printf("  %-24s \"%s\"\n", ostrum_variable_get_name(variables[i]),
               ostrum_variable_get_value(variables[i]));
    ostrum_variables_destroy(variables);
}

struct figure {
    const char* label;
    int64_t (*get)(const ostrum_proc_metrics* record);
};

static const struct figure process_figures[] = {
    {"updates", ostrum_proc_metrics_get_counter},
    {"resident memory, bytes", ostrum_proc_metrics_get_rss_bytes},
    {"virtual memory, bytes", ostrum_proc_metrics_get_mem_bytes},
    {"child processes", ostrum_proc_metrics_get_children},
    {"threads", ostrum_proc_metrics_get_threads},
};

static const struct figure data_manager_figures[] = {
    {"database number", ostrum_proc_metrics_get_dbno},
    {"shared memory: size", ostrum_proc_metrics_get_shm_size},
    {"  used", ostrum_proc_metrics_get_shm_used},
    {"  most used", ostrum_proc_metrics_get_shm_max_used},
    {"large blocks: size", ostrum_proc_metrics_get_big_size},
    {"  used", ostrum_proc_metrics_get_big_used},
    {"  most used", ostrum_proc_metrics_get_big_max_used},
    {"  chunks", ostrum_proc_metrics_get_big_chunks},
    {"transactions: open", ostrum_proc_metrics_get_trans_op},
    {"  waiting", ostrum_proc_metrics_get_trans_queued},
    {"  limit", ostrum_proc_metrics_get_trans_max},
    {"  done", ostrum_proc_metrics_get_trans_done_total},
    {"  failed", ostrum_proc_metrics_get_trans_error_total},
    {"operations: done", ostrum_proc_metrics_get_ops_done_total},
    {"  failed", ostrum_proc_metrics_get_ops_error_total},
    {"connections: open", ostrum_proc_metrics_get_fe_connects},
    {"  in total", ostrum_proc_metrics_get_fe_connects_total},
    {"  failed", ostrum_proc_metrics_get_fe_connects_error_total},
};

static void print_figures(const ostrum_proc_metrics* metrics, const struct figure* figures, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        printf("  %-24s %20" PRId64 "\n", figures[i].label, figures[i].get(metrics));
}

/* CPU time adds up over all processes of the file, the rest is from the one that published last. */
static void print_metrics(rt_info* file)
{
    ostrum_proc_metrics* metrics = ostrum_proc_metrics_get(file);
    if (metrics == NULL)
        return; /* the library has said why */
    char user[32];
    char system[32];
    printf("\nprocess metrics\n  CPU seconds: user %s, system %s\n",
           ostrum_proc_metrics_get_u_cpu_str(metrics, user, sizeof user),
           ostrum_proc_metrics_get_s_cpu_str(metrics, system, sizeof system));
    print_figures(metrics, process_figures, sizeof process_figures / sizeof process_figures[0]);
    if (ostrum_proc_metrics_get_is_dm(metrics)) {
        printf("data manager\n");
        print_figures(metrics, data_manager_figures,
                      sizeof data_manager_figures / sizeof data_manager_figures[0]);
    }
    ostrum_proc_metrics_destroy(metrics);
}

/* In the order given: a list of operations goes in before tracing is switched on for them. */
static int set_variables(rt_info* file, const struct request* asked)
{
    for (int i = 0; i < asked->setting_count; ++i) {
        char* const equals = strchr(asked->settings[i], '=');
        *equals = '\0';
        if (ostrum_variable_set(file, asked->settings[i], equals + 1) != 0) {
            fprintf(stderr, "monitor: variable %s could not be set\n", asked->settings[i]);
            return EXIT_NOT_DONE;
        }
    }
    return EXIT_DONE;
}

/* 0 when the arguments make no request. */
static int read_arguments(int argc, char** argv, struct request* asked)
{
    const int most = (int)(sizeof asked->settings / sizeof asked->settings[0]);
    for (int option = 0; (option = getopt(argc, argv, "rs:")) != -1;) {
        if (option == 'r')
            asked->reset = 1;
        else if (option == 's' && asked->setting_count < most && strchr(optarg, '=') > optarg)
            asked->settings[asked->setting_count++] = optarg;
        else
            return 0;
    }
    asked->path = argv[optind];
    return optind == argc - 1;
}

int main(int argc, char** argv)
{
    struct request asked = {0};
    if (!read_arguments(argc, argv, &asked)) {
        fputs(usage, stderr);
        return EXIT_USAGE;
    }
    rt_info* file = ostrum_data_file_open(asked.path); /* never creates a file, unlike a traced process */
    if (file == NULL)
        return EXIT_NOT_DONE; /* the library has said why */
    const int status = set_variables(file, &asked);
    if (status == EXIT_DONE) {
        print_heading(file, asked.path);
        print_counters(file, asked.reset);
        print_errors(file, asked.reset);
        print_variables(file);
        print_metrics(file);
    }
    ostrum_data_file_close(file);
    return status;
}
