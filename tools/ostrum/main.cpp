#include <algorithm>
#include <clocale>
#include <csignal>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include "cli/command.h"
#include "output/terminal.h"

namespace {

bool wants_pager(const std::vector<std::string>& words)
{
    const auto commands = ostrum_tool::all_commands();
    return !words.empty() &&
           std::any_of(commands.begin(), commands.end(),
                       [&](const ostrum_tool::command* each) {
                           return each->long_text && words.front() == each->name;
                       }) &&
           std::find(words.begin(), words.end(), "--follow") == words.end(); // which is live
}

} // namespace

int main(int argc, char** argv)
{
    try {
        std::setlocale(LC_CTYPE, "");
        std::signal(SIGPIPE, SIG_IGN); // a reader that leaves shows as EPIPE
        const std::vector<std::string> words(argv + 1, argv + argc);
        ostrum_tool::descriptor_buffer buffer(STDOUT_FILENO);
        const ostrum_tool::text_style style = ostrum_tool::style_of_descriptor(STDOUT_FILENO);
        std::unique_ptr<ostrum_tool::pager> paging;
        if (wants_pager(words)) {
            paging = std::make_unique<ostrum_tool::pager>(buffer);
        }
        std::ostream out(&buffer);
        return ostrum_tool::run_tool(words, {out, std::cerr, style, ::isatty(STDERR_FILENO) == 1});
    } catch (...) {
        return 1;
    }
}
