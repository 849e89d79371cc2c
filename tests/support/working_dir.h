#ifndef OSTRUM_TESTS_SUPPORT_WORKING_DIR_H
#define OSTRUM_TESTS_SUPPORT_WORKING_DIR_H
#include <filesystem>
#include <string>

#include "support/temp_dir.h"

// A temporary directory that is the current one for the length of a test.
class working_dir : public temp_dir {
public:
    working_dir() { std::filesystem::current_path(path()); }
    ~working_dir() { std::filesystem::current_path(before_); }
    working_dir(const working_dir&) = delete;
    working_dir& operator=(const working_dir&) = delete;

private:
    std::filesystem::path before_ = std::filesystem::current_path();
};
#endif
