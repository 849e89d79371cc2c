#include "cli/progress_line.h"

#include <chrono>

#include <fmt/format.h>

namespace ostrum_tool {
namespace {

constexpr auto patience = std::chrono::seconds(1);
constexpr auto interval = std::chrono::milliseconds(250);
constexpr double bytes_per_mb = 1e6;

std::string progress_text(const read_progress& progress)
{
    const auto done = static_cast<double>(progress.bytes.load());
    const auto all = static_cast<double>(progress.all_bytes.load());
    // Compressed input gives more than the files' sizes.
    return done > all ? fmt::format("reading: {:.0f} MB", done / bytes_per_mb)
                      : fmt::format("reading: {:.0f} of {:.0f} MB, {:.0f}%", done / bytes_per_mb,
                                    all / bytes_per_mb, all > 0 ? done * 100 / all : 0);
}

} // namespace

progress_line::progress_line(const read_progress& progress, const streams& to)
{
    if (to.err_is_terminal) {
        thread_.emplace([this, &progress, &err = to.err] { show_until_done(progress, err); });
    }
}

progress_line::~progress_line()
{
    if (thread_) {
        {
            const std::lock_guard guard(lock_);
            done_ = true;
        }
        wake_.notify_one();
        thread_->join();
    }
}

void progress_line::show_until_done(const read_progress& progress, std::ostream& err)
{
    std::unique_lock guard(lock_);
    auto wait = std::chrono::milliseconds(patience);
    bool shown = false;
    while (!wake_.wait_for(guard, wait, [this] { return done_; })) {
        err << "\r" << progress_text(progress) << "\x1b[K" << std::flush;
        wait = interval;
        shown = true;
    }
    if (shown) {
        err << "\r\x1b[K" << std::flush;
    }
}

} // namespace ostrum_tool
