#include "support/host/script.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

#include "qel_platform.h"

int command::number(size_t index, int otherwise) const
{
    return index < args.size() ? static_cast<int>(strtol(args[index].c_str(), nullptr, 0)) : otherwise;
}

std::string command::text(size_t index, const std::string& otherwise) const
{
    return index < args.size() ? args[index] : otherwise;
}

std::string command::all_words() const
{
    std::string all;
    for (const std::string& word : args) {
        all += (all.empty() ? "" : " ") + word;
    }
    return all;
}

int command::signal() const
{
    for (int n = 1; n < NSIG; ++n) {
        const char* name = sigabbrev_np(n);
        if (name != nullptr && text(0) == name) {
            return n;
        }
    }
    return number(0);
}

namespace {

command_body find_body(const std::string& name)
{
    for (const command_table* table :
         {&library_commands, &process_commands, &signal_commands, &surroundings_commands, &ending_commands}) {
        if (const auto found = table->find(name); found != table->end()) {
            return found->second;
        }
    }
    return nullptr;
}

// `words` begins with the name.
command command_of(std::vector<std::string>& words, script block)
{
    command c;
    c.body = find_body(words[0]);
    size_t taken = 1;
    if (c.body == nullptr && words.size() > 1) {
        c.body = find_body(words[0].substr(0, words[0].find("_key")));
        c.key = static_cast<int>(strtol(words[taken++].c_str(), nullptr, 0));
    }
    if (c.body == nullptr) {
        printf("BAD command %s\n", words[0].c_str());
        fflush(stdout);
        _exit(99);
    }
    c.args.assign(words.begin() + static_cast<ptrdiff_t>(taken), words.end());
    c.block = std::move(block);
    return c;
}

// Up to the end, or the brace that closes the block.
script parse_block(const char*& at)
{
    script commands;
    std::vector<std::string> words;
    script block;
    for (;;) {
        at += strspn(at, " \t");
        const size_t length = strcspn(at, " \t;\n{}");
        if (length > 0) {
            words.emplace_back(at, length);
            at += length;
            continue;
        }
        const char end = *at;
        at += end != '\0' ? 1 : 0;
        if (end == '{') {
            block = parse_block(at);
        }
        if (!words.empty()) {
            commands.push_back(command_of(words, std::move(block)));
        }
        words.clear();
        block.clear();
        if (end == '}' || end == '\0') {
            return commands;
        }
    }
}

} // namespace

script parse(const char* text)
{
    return parse_block(text);
}

void run(const script& commands)
{
    for (const command& c : commands) {
        c.body(c);
    }
}

#ifdef __SANITIZE_THREAD__
// Scripts may end the process while threads are at work, or before anyone joins them.
extern "C" const char* __tsan_default_options()
{
    return "report_thread_leaks=0";
}
#endif

int main(int argc, char** argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: script_host SCRIPT\n");
        return 98;
    }
    qel_platform_init();
    static const script& commands = *new script(parse(argv[1]));
    run(commands);
    return 0;
}
