#include <span>

#include "output/value_text.h"
#include "prometheus/figures.h"

namespace ostrum_tool {
namespace {

using enum metric_kind;

// Words of a data manager are the host's own figures in its own units. Every process has a thread: without
// one memory is unknown too.
bool is_known(size_t word, const metric_values& metrics)
{
    const size_t telling = word < metric_word("is_dm") ? metric_word("threads") : metric_word("is_dm");
    return word < metric_word("rss_bytes") || metrics[telling] != 0;
}

constexpr metric_family cpu_time{"ostrum_process_cpu_seconds", counter, "seconds",
                                 "CPU time of the host processes and their children"};
constexpr figure<size_t> process_figures[] = {
    {{"ostrum_process_updates", counter, "", "Updates of the process metrics"}, metric_word("samples")},
    {cpu_time, metric_word("u_cpu"), "mode=\"user\""},
    {cpu_time, metric_word("s_cpu"), "mode=\"system\""},
    {{"ostrum_process_resident_memory_bytes", gauge, "bytes",
      "Resident memory of a host process and its children"},
     metric_word("rss_bytes")},
    {{"ostrum_process_virtual_memory_bytes", gauge, "bytes",
      "Virtual memory of a host process and its children"},
     metric_word("mem_bytes")},
    {{"ostrum_process_children", gauge, "", "Child processes of a host process"}, metric_word("children")},
    {{"ostrum_process_threads", gauge, "", "Threads of a host process and its children"},
     metric_word("threads")},
};
constexpr metric_family data_manager{"ostrum_dm", info, "", "The data manager that published what follows"};
constexpr figure<size_t> data_manager_figures[] = {
    {{"ostrum_dm_shm_size", gauge, "", "Shared-memory pool: size"}, metric_word("shm_size")},
    {{"ostrum_dm_shm_used", gauge, "", "Shared-memory pool: in use"}, metric_word("shm_used")},
    {{"ostrum_dm_shm_max_used", gauge, "", "Shared-memory pool: most ever in use"},
     metric_word("shm_max_used")},
    {{"ostrum_dm_big_size", gauge, "", "Large-block pool: size"}, metric_word("big_size")},
    {{"ostrum_dm_big_used", gauge, "", "Large-block pool: in use"}, metric_word("big_used")},
    {{"ostrum_dm_big_max_used", gauge, "", "Large-block pool: most ever in use"},
     metric_word("big_max_used")},
    {{"ostrum_dm_big_chunks", gauge, "", "Large-block pool: chunks"}, metric_word("big_chunks")},
    {{"ostrum_dm_trans_op", gauge, "", "Transactions in progress"}, metric_word("trans_op")},
    {{"ostrum_dm_trans_queued", gauge, "", "Transactions that wait"}, metric_word("trans_queued")},
    {{"ostrum_dm_trans_max", gauge, "", "Transactions that may be in progress at a time"},
     metric_word("trans_max")},
    {{"ostrum_dm_ops_done", counter, "", "Operations done"}, metric_word("ops_done_total")},
    {{"ostrum_dm_ops_error", counter, "", "Operations failed"}, metric_word("ops_error_total")},
    {{"ostrum_dm_trans_done", counter, "", "Transactions done"}, metric_word("trans_done_total")},
    {{"ostrum_dm_trans_error", counter, "", "Transactions failed"}, metric_word("trans_error_total")},
    {{"ostrum_dm_fe_connections", gauge, "", "Front-end connections now"}, metric_word("fe_connects")},
    {{"ostrum_dm_fe_connects", counter, "", "Front-end connections in total"},
     metric_word("fe_connects_total")},
    {{"ostrum_dm_fe_connects_error", counter, "", "Front-end connections failed"},
     metric_word("fe_connects_error_total")},
};

void add_words(exposition& out, const std::vector<exported_file>& files,
               std::span<const figure<size_t>> figures)
{
    for (size_t row = 0; row < figures.size(); ++row) {
        const figure<size_t>& word = figures[row];
        begin_figure(out, figures, row);
        for (const exported_file& file : files) {
            if (file.content && is_known(word.place, file.content->metrics)) {
                add_figure(out, word, file_label(file), file.content->metrics[word.place]);
            }
        }
    }
}

void add_data_managers(exposition& out, const std::vector<exported_file>& files)
{
    out.begin(data_manager);
    for (const exported_file& file : files) {
        if (file.content && file.content->metrics[metric_word("is_dm")] != 0) {
            std::string labels = file_label(file);
            add_label(labels, "db",
                      db_text(static_cast<int64_t>(file.content->metrics[metric_word("dbno")])));
            out.sample(labels, "1");
        }
    }
}

} // namespace

void add_process_metrics(exposition& out, const std::vector<exported_file>& files)
{
    add_words(out, files, process_figures);
    add_data_managers(out, files);
    add_words(out, files, data_manager_figures);
}

} // namespace ostrum_tool
