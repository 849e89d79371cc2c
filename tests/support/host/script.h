#ifndef OSTRUM_TESTS_SUPPORT_HOST_SCRIPT_H
#define OSTRUM_TESTS_SUPPORT_HOST_SCRIPT_H
// A host process in miniature, driven by a script: what happens once per process (start-up, exit, forks,
// signals) is tested by running it. usage: script_host SCRIPT
//
// A script is commands separated by ';' or line ends; a block of them stands in braces. The commands are in
// the tables below, which are never destroyed: threads that nobody waits for use them while the process
// exits.
#include <map>
#include <string>
#include <vector>

struct command;
using script = std::vector<command>;
using command_body = void (*)(const command&);

constexpr int no_key = -1;
struct command {
    command_body body = nullptr;
    int key = no_key; // COMMAND_key KEY ... is the command in the context of (own process id, KEY)
    std::vector<std::string> args;
    script block;

    [[nodiscard]] int number(size_t index, int otherwise = 0) const;
    [[nodiscard]] std::string text(size_t index, const std::string& otherwise = "") const;
    [[nodiscard]] std::string all_words() const;
    [[nodiscard]] int signal() const; // the first word, as in HUP
};

script parse(const char* text);
void run(const script& commands);

using command_table = std::map<std::string, command_body>;
extern const command_table& library_commands;      // what a host calls of the library
extern const command_table& process_commands;      // threads, forks, time
extern const command_table& signal_commands;       // signals
extern const command_table& surroundings_commands; // descriptors, limits, the clock, planted faults
extern const command_table& ending_commands;       // the end, and what is reported there
#endif
