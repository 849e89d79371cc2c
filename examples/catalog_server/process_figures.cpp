#include "process_figures.h"

#include <algorithm>

#include <sqlite3.h>

#include "fields.h"
#include "ostrum_data.h"

namespace catalog {
namespace {

constexpr std::chrono::milliseconds least_distance{550};

struct memory_figure {
    uint64_t now = 0;
    uint64_t most = 0; // since the process began
};

// SQLite keeps these for the process, over all its connections.
memory_figure sqlite_figure(int which)
{
    sqlite3_int64 now = 0;
    sqlite3_int64 most = 0;
    if (sqlite3_status64(which, &now, &most, 0) != SQLITE_OK)
        return {};
    return {static_cast<uint64_t>(now), static_cast<uint64_t>(most)};
}

} // namespace

std::chrono::milliseconds publishing_clock::left() const
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next_ - clock::now());
    return std::max(left, std::chrono::milliseconds(0));
}

// Never two within half a second: the library takes no sample then, and would publish zeros.
bool publishing_clock::due()
{
    const auto now = clock::now();
    if (now < next_)
        return false;
    next_ = std::chrono::ceil<std::chrono::seconds>(now - part_ + least_distance) + part_;
    return true;
}

void publish_connection_manager()
{
    ostrum_proc_metrics_set_cm_data();
}

// The names of the figures are the library's; SQLite's heap stands in for the shared memory of larger
// servers, its page cache for their large blocks. Neither has a fixed size.
void publish_data_manager(const service_figures& figures)
{
    const memory_figure heap = sqlite_figure(SQLITE_STATUS_MEMORY_USED);
    const memory_figure pages = sqlite_figure(SQLITE_STATUS_PAGECACHE_OVERFLOW);
    const uint64_t no_fixed_size = 0;
    ostrum_proc_metrics_set_dm_data(
        static_cast<uint64_t>(database_number), no_fixed_size, heap.now, heap.most, no_fixed_size, pages.now,
        pages.most, sqlite_figure(SQLITE_STATUS_MALLOC_COUNT).now, figures.transactions_open,
        figures.transactions_waiting, figures.transactions_max, figures.operations_done,
        figures.operations_failed, figures.transactions_done, figures.transactions_failed,
        figures.connections_open, figures.connections_total, figures.connections_failed);
}

} // namespace catalog
