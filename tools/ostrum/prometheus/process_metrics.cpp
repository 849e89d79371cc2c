#include <array>

#include "output/value_text.h"
#include "prometheus/figures.h"

namespace ostrum_tool {
namespace {

using words = std::array<uint64_t, metric_words>;

using enum metric_kind;

constexpr size_t threads_word = 6;
constexpr size_t dm_flag_word = 7;
constexpr size_t dm_db_word = 8;

bool was_sampled(const words& metrics)
{
    return metrics[threads_word] > 0; // every process has one: 0 means that memory is unknown too
}

bool is_data_manager(const words& metrics)
{
    return metrics[dm_flag_word] != 0;
}

bool always(const words&)
{
    return true;
}

// A word in file order. Those of a data manager are the host's own figures in its own units.
struct word_figure {
    metric_family family;
    size_t place;
    const char* more_labels;
    bool (*known)(const words& metrics);
};

constexpr metric_family cpu_time{"ostrum_process_cpu_seconds", counter, "seconds",
                                 "CPU time of the host processes and their children"};
constexpr word_figure process_figures[] = {
    {{"ostrum_process_updates", counter, "", "Updates of the process metrics"}, 0, "", always},
    {cpu_time, 1, "mode=\"user\"", always},
    {cpu_time, 2, "mode=\"system\"", always},
    {{"ostrum_process_resident_memory_bytes", gauge, "bytes",
      "Resident memory of a host process and its children"},
     3,
     "",
     was_sampled},
    {{"ostrum_process_virtual_memory_bytes", gauge, "bytes",
      "Virtual memory of a host process and its children"},
     4,
     "",
     was_sampled},
    {{"ostrum_process_children", gauge, "", "Child processes of a host process"}, 5, "", was_sampled},
    {{"ostrum_process_threads", gauge, "", "Threads of a host process and its children"},
     threads_word,
     "",
     was_sampled},
};
constexpr metric_family data_manager{"ostrum_dm", info, "", "The data manager that published what follows"};
constexpr word_figure data_manager_figures[] = {
    {{"ostrum_dm_shm_size", gauge, "", "Shared-memory pool: size"}, 9, "", is_data_manager},
    {{"ostrum_dm_shm_used", gauge, "", "Shared-memory pool: in use"}, 10, "", is_data_manager},
    {{"ostrum_dm_shm_max_used", gauge, "", "Shared-memory pool: most ever in use"}, 11, "", is_data_manager},
    {{"ostrum_dm_big_size", gauge, "", "Large-block pool: size"}, 12, "", is_data_manager},
    {{"ostrum_dm_big_used", gauge, "", "Large-block pool: in use"}, 13, "", is_data_manager},
    {{"ostrum_dm_big_max_used", gauge, "", "Large-block pool: most ever in use"}, 14, "", is_data_manager},
    {{"ostrum_dm_big_chunks", gauge, "", "Large-block pool: chunks"}, 15, "", is_data_manager},
    {{"ostrum_dm_trans_op", gauge, "", "Transactions in progress"}, 16, "", is_data_manager},
    {{"ostrum_dm_trans_queued", gauge, "", "Transactions that wait"}, 17, "", is_data_manager},
    {{"ostrum_dm_trans_max", gauge, "", "Transactions that may be in progress at a time"},
     18,
     "",
     is_data_manager},
    {{"ostrum_dm_ops_done", counter, "", "Operations done"}, 19, "", is_data_manager},
    {{"ostrum_dm_ops_error", counter, "", "Operations failed"}, 20, "", is_data_manager},
    {{"ostrum_dm_trans_done", counter, "", "Transactions done"}, 21, "", is_data_manager},
    {{"ostrum_dm_trans_error", counter, "", "Transactions failed"}, 22, "", is_data_manager},
    {{"ostrum_dm_fe_connections", gauge, "", "Front-end connections now"}, 23, "", is_data_manager},
    {{"ostrum_dm_fe_connects", counter, "", "Front-end connections in total"}, 24, "", is_data_manager},
    {{"ostrum_dm_fe_connects_error", counter, "", "Front-end connections failed"}, 25, "", is_data_manager},
};

void add_words(exposition& out, const std::vector<exported_file>& files, std::span<const word_figure> figures)
{
    for (size_t row = 0; row < figures.size(); ++row) {
        const word_figure& word = figures[row];
        begin_figure(out, figures, row);
        for (const exported_file& file : files) {
            if (file.content && word.known(file.content->metrics)) {
                add_figure(out, word, file_label(file), file.content->metrics[word.place]);
            }
        }
    }
}

void add_data_managers(exposition& out, const std::vector<exported_file>& files)
{
    out.begin(data_manager);
    for (const exported_file& file : files) {
        if (file.content && is_data_manager(file.content->metrics)) {
            std::string labels = file_label(file);
            add_label(labels, "db", db_text(static_cast<int64_t>(file.content->metrics[dm_db_word])));
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
