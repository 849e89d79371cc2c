#ifndef OSTRUM_TESTS_TOOL_EXPORTER_H
#define OSTRUM_TESTS_TOOL_EXPORTER_H
#include <string>
#include <vector>

#include "support/temp_dir.h"
#include "tool/child_program.h"

namespace tool_test {

// "ostrum serve" on a port that is free.
class exporter {
public:
    exporter(const temp_dir& dir, std::vector<std::string> data_files)
        : log_(dir.file("exporter.log")), program_(with_options(std::move(data_files)), log_)
    {
        const std::string before = "serving http://127.0.0.1:";
        const auto port_is_told = [&] {
            const std::string said = temp_dir::read(log_);
            const size_t at = said.find(before);
            const bool told = at != std::string::npos && said.find('\n', at) != std::string::npos;
            port_ = told ? std::stoi(said.substr(at + before.size())) : 0;
            return told;
        };
        comes_true(port_is_told);
    }
    [[nodiscard]] int port() const { return port_; } // 0: it does not serve
    child_program& program() { return program_; }

private:
    static std::vector<std::string> with_options(std::vector<std::string> data_files)
    {
        data_files.insert(data_files.begin(), {OSTRUM_TOOL, "serve", "--listen", "127.0.0.1:0"});
        return data_files;
    }

    std::string log_;
    child_program program_;
    int port_ = 0;
};

} // namespace tool_test
#endif
