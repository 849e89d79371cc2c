#include <iostream>
#include <string>
#include <vector>

#include "command_line.h"

int main(int argc, char** argv)
{
    try {
        std::ios::sync_with_stdio(false);
        const std::vector<std::string> words(argv + 1, argv + argc);
        return ostrum_tool::run_tool(words, {std::cout, std::cerr});
    } catch (...) {
        return 1;
    }
}
