#include "prometheus/textfile.h"

#include "output/atomic_file.h"
#include "output/value_text.h"
#include "prometheus/data_file_metrics.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

int tell_what_is_wrong(const std::vector<exported_file>& files, const streams& to)
{
    int status = exit_done;
    for (const exported_file& file : files) {
        if (!file.content) {
            to.err << "ostrum: " << printable(file.failure) << "\n";
            status = exit_input;
            continue;
        }
        for (const std::string& problem : file.content->problems) {
            to.err << printable(file.path) << ": " << problem << "\n";
            status = status == exit_done ? exit_damaged : status;
        }
    }
    return status;
}

} // namespace

int export_prometheus(const std::string& target, const std::vector<std::string>& paths,
                      const label_choice& labels, const streams& to)
{
    const std::vector<exported_file> files =
        read_exported_files(paths.empty() ? std::vector<std::string>{default_data_file} : paths);
    const std::string text = exposition_of(files, labels, exposition_format::text_0_0_4);
    if (target == "-") {
        to.out << text;
    } else {
        write_file_atomically(target, text);
    }
    return tell_what_is_wrong(files, to);
}

} // namespace ostrum_tool
