// The tool's reader of field-list traces: every line is an event, damage, a header or a part of a list.
#include <algorithm>

#include "fuzz/fuzz_target.h"
#include "readers/byte_source.h"
#include "readers/flist_trace.h"
#include "tool_errors.h"

using namespace ostrum_tool;

namespace {

constexpr int32_t deepest = 65'536; // a line has no room for more

struct told {
    int64_t events = 0;
    int64_t damages = 0;
    uint64_t last_offset = 0;
};

void check_event(const flist_event& event, uint64_t size)
{
    fuzz::must(event.offset < size, "an event lies in the file");
    const bool of_tree = event.is != flist_event::kind::block_in && event.is != flist_event::kind::block_out;
    fuzz::must(!of_tree || (event.level >= 1 && event.level < deepest), "a tree line has a level");
    size_t bytes = 0; // reads all that the texts point to
    for (const std::string_view text :
         {event.name, event.fname, event.flags, event.correlation, event.error_text}) {
        fuzz::must(std::find(text.begin(), text.end(), '\n') == text.end(), "a text is a part of its line",
                   text);
        bytes += text.size();
    }
    fuzz::must(bytes <= size, "texts do not overlap");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const int zone = setenv("TZ", "EST5EDT", 1);
    const fuzz::nothing_left_behind watch;
    const std::string_view text = fuzz::text_of(data, size);
    told seen;
    const auto check_offset = [&seen](uint64_t offset) {
        fuzz::must(offset >= seen.last_offset, "a file is told in its order");
        seen.last_offset = offset;
    };
    const bool packed = text.starts_with("\x1F\x8B") || text.starts_with("\x28\xB5\x2F\xFD");
    const flist_sink sink{[&](const flist_event& event) {
                              check_offset(event.offset);
                              check_event(event, packed ? UINT64_MAX : size);
                              ++seen.events;
                          },
                          [&](uint64_t offset, const std::string& what) {
                              check_offset(offset);
                              fuzz::must(!what.empty(), "damage has a description");
                              ++seen.damages;
                          }};
    looks_like_flist_trace(text.substr(0, text.find('\n')));
    try {
        const auto source = open_source(fuzz::file_of(text));
        const flist_summary summary = read_flist_trace(*source, sink);
        fuzz::must(summary.events == seen.events, "events are counted");
        const int64_t lines = std::count(text.begin(), text.end(), '\n') + 1;
        fuzz::must(packed || summary.bytes == size, "the whole file is read");
        fuzz::must(packed || summary.events + summary.list_lines <= lines, "a line counts once");
    } catch (const damaged_input&) { // compressed, and not as it should be
        return 0;
    }
    return zone;
}
