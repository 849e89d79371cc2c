#ifndef OSTRUM_TESTS_SUPPORT_TEMP_DIR_H
#define OSTRUM_TESTS_SUPPORT_TEMP_DIR_H
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <stdlib.h>

// A directory for one test, removed with it.
class temp_dir {
public:
    temp_dir()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "ostrum_test_XXXXXX").string();
        path_ = mkdtemp(pattern.data());
    }
    ~temp_dir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    temp_dir(const temp_dir&) = delete;
    temp_dir& operator=(const temp_dir&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::string file(const std::string& name) const { return path_ + "/" + name; }
    std::string write(const std::string& name, const std::string& text) const
    {
        std::ofstream(file(name), std::ios::binary) << text;
        return file(name);
    }
    static std::string read(const std::string& file_path)
    {
        std::ostringstream text;
        text << std::ifstream(file_path, std::ios::binary).rdbuf();
        return text.str();
    }
    // Full paths of the files whose names end so, sorted.
    [[nodiscard]] std::vector<std::string> files_ending(const std::string& end) const
    {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(path_)) {
            const std::string name = entry.path().string();
            if (name.ends_with(end)) {
                found.push_back(name);
            }
        }
        std::sort(found.begin(), found.end());
        return found;
    }
    // Of these files, one after the other.
    [[nodiscard]] std::string text_of(const std::string& end) const
    {
        std::string text;
        for (const std::string& found : files_ending(end)) {
            text += read(found);
        }
        return text;
    }

private:
    std::string path_;
};
#endif
