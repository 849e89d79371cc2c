#include <array>

#include "output/value_text.h"
#include "prometheus/figures.h"

namespace ostrum_tool {
namespace {

using words = std::array<uint64_t, metric_words>;

constexpr metric_kind counter = metric_kind::counter;
constexpr metric_kind gauge = metric_kind::gauge;

constexpr metric_family updates{"ostrum_process_updates", counter, "", "Updates of the process metrics"};
constexpr metric_family cpu{"ostrum_process_cpu_seconds", counter, "seconds",
                            "CPU time of the host processes and their children"};
constexpr metric_family resident{"ostrum_process_resident_memory_bytes", gauge, "bytes",
                                 "Resident memory of a host process and its children"};
constexpr metric_family in_all{"ostrum_process_virtual_memory_bytes", gauge, "bytes",
                               "Virtual memory of a host process and its children"};
constexpr metric_family children{"ostrum_process_children", gauge, "", "Child processes of a host process"};
constexpr metric_family threads{"ostrum_process_threads", gauge, "",
                                "Threads of a host process and its children"};

constexpr std::array<figure, 3> sums{
    {{&updates, 0, ""}, {&cpu, 1, "mode=\"user\""}, {&cpu, 2, "mode=\"system\""}}};
constexpr std::array<figure, 4> samples{
    {{&resident, 3, ""}, {&in_all, 4, ""}, {&children, 5, ""}, {&threads, 6, ""}}};

constexpr metric_family data_manager{"ostrum_dm", metric_kind::info, "",
                                     "The data manager that published what follows"};

// In file order from word 9 on; the host's own figures in its own units.
constexpr size_t first_dm_word = 9;
constexpr std::array<metric_family, metric_words - first_dm_word> dm_families{
    {{"ostrum_dm_shm_size", gauge, "", "Shared-memory pool: size"},
     {"ostrum_dm_shm_used", gauge, "", "Shared-memory pool: in use"},
     {"ostrum_dm_shm_max_used", gauge, "", "Shared-memory pool: most ever in use"},
     {"ostrum_dm_big_size", gauge, "", "Large-block pool: size"},
     {"ostrum_dm_big_used", gauge, "", "Large-block pool: in use"},
     {"ostrum_dm_big_max_used", gauge, "", "Large-block pool: most ever in use"},
     {"ostrum_dm_big_chunks", gauge, "", "Large-block pool: chunks"},
     {"ostrum_dm_trans_op", gauge, "", "Transactions in progress"},
     {"ostrum_dm_trans_queued", gauge, "", "Transactions that wait"},
     {"ostrum_dm_trans_max", gauge, "", "Transactions that may be in progress at a time"},
     {"ostrum_dm_ops_done", counter, "", "Operations done"},
     {"ostrum_dm_ops_error", counter, "", "Operations failed"},
     {"ostrum_dm_trans_done", counter, "", "Transactions done"},
     {"ostrum_dm_trans_error", counter, "", "Transactions failed"},
     {"ostrum_dm_fe_connections", gauge, "", "Front-end connections now"},
     {"ostrum_dm_fe_connects", counter, "", "Front-end connections in total"},
     {"ostrum_dm_fe_connects_error", counter, "", "Front-end connections failed"}}};

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

void add_words(exposition& out, const std::vector<exported_file>& files, std::span<const figure> figures,
               bool (*known)(const words&))
{
    for (size_t row = 0; row < figures.size(); ++row) {
        begin_figure(out, figures, row);
        for (const exported_file& file : files) {
            if (file.content && known(file.content->metrics)) {
                add_figure(out, figures[row], file_label(file), file.content->metrics[figures[row].place]);
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
    add_words(out, files, sums, always);
    add_words(out, files, samples, was_sampled);
    add_data_managers(out, files);
    std::array<figure, dm_families.size()> dm_figures{};
    for (size_t at = 0; at < dm_families.size(); ++at) {
        dm_figures[at] = {&dm_families[at], first_dm_word + at, ""};
    }
    add_words(out, files, dm_figures, is_data_manager);
}

} // namespace ostrum_tool
