// What surrounds a host goes wrong for real: full disks, limits, standard descriptors, the log directory; and
// tables reach their ends.
#include <filesystem>
#include <functional>
#include <iostream>

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "robustness/host_oracle.h"

namespace {

// Flushes of two paths each, of both kinds of contexts.
std::string load(int times)
{
    return "repeat " + std::to_string(times) +
           " {op 3; start 4; start 5; end; end; op_key 1 7}; flist_op 5; ";
}

std::shared_ptr<temp_dir> open_to_all()
{
    auto directory = std::make_shared<temp_dir>();
    chmod(directory->path().c_str(), 0777);
    return directory;
}

bool is_root()
{
    return geteuid() == 0;
}

// A file system of so many bytes on the directory, seen by this process and its hosts only.
class small_disk {
public:
    small_disk(const temp_dir& directory, const char* size) : path_(directory.path())
    {
        static const bool apart =
            unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        mounted_ = apart && mount("tmpfs", path_.c_str(), "tmpfs", 0,
                                  ("mode=0777,size=" + std::string(size)).c_str()) == 0;
    }
    ~small_disk()
    {
        if (mounted_) {
            umount2(path_.c_str(), MNT_DETACH);
        }
    }
    small_disk(const small_disk&) = delete;
    small_disk& operator=(const small_disk&) = delete;
    explicit operator bool() const { return mounted_; }

private:
    std::string path_;
    bool mounted_ = false;
};

} // namespace

TEST(HostSurroundings, FullDisks)
{
    int runs = 0;
    for (const char* size : {"64k", "1m", "6m"}) {
        for (const writing& way : ways()) {
            for (const bool data_file_elsewhere : {false, true}) {
                SCOPED_TRACE(std::string(size) + ", " + way.name +
                             (data_file_elsewhere ? ", data file elsewhere" : ""));
                const auto directory = std::make_shared<temp_dir>();
                const temp_dir elsewhere;
                const std::string data_file = elsewhere.file("ostrum_data.dat");
                const small_disk disk(*directory, size);
                if (!disk) {
                    GTEST_SKIP() << "file systems cannot be mounted here";
                }
                std::vector<host_setting> settings = way.settings;
                if (data_file_elsewhere) {
                    settings.push_back({"ostrum_data_file", data_file.c_str()});
                }
                const observed_run run =
                    observe(settings, "init; " + load(3000) + "query; exit 5", {.directory = directory});
                expect_unharmed(run, {.exit_status = 5, .may_cut = true});
                const bool largest = size == std::string("6m");
                EXPECT_EQ(run.enabled(), data_file_elsewhere || largest);
                EXPECT_EQ(run.written == run.issued, data_file_elsewhere && largest) << "the disk is full";
                ++runs;
            }
        }
    }
    std::cout << runs << " runs\n";
}

TEST(HostSurroundings, Limits)
{
    if (sanitized()) {
        GTEST_SKIP() << "a sanitizer takes more memory and descriptors than the limits leave";
    }
    struct limit {
        const char* resource;
        std::vector<int> amounts;
    };
    const limit limits[] = {
        {"file_size", {0, 1, 100, 1000, 65'536, 5'800'543, 5'800'544}},
        {"descriptors", {3, 4, 5, 6, 7}},
        {"address_space", {0, 1 << 20, 4 << 20, 5'800'544, 6 << 20, 9 << 20, 20 << 20}},
        {"processes", {0, 1}},
    };
    int runs = 0;
    for (const limit& l : limits) {
        for (const int amount : l.amounts) {
            for (const writing& way : ways()) {
                SCOPED_TRACE(std::string(l.resource) + " " + std::to_string(amount) + ", " + way.name);
                const std::string script = (is_root() ? "user 65534; limit " : "limit ") +
                                           std::string(l.resource) + " " + std::to_string(amount) + "; " +
                                           load(300) + "query; exit 5";
                expect_unharmed(observe(way.settings, script, {.directory = open_to_all()}),
                                {.exit_status = 5, .may_cut = true, .untold = amount < 1000});
                ++runs;
            }
        }
    }
    std::cout << runs << " runs\n";
}

TEST(HostSurroundings, SmallStacks)
{
    if (sanitized()) {
        GTEST_SKIP() << "sanitized code needs more stack";
    }
    for (const writing& way : ways()) {
        SCOPED_TRACE(way.name);
        const observed_run run = observe(way.settings, "small_stack 64 {init; " + load(100) +
                                                           "query; select 1}; " + load(100) + "exit 5");
        expect_unharmed(run, {.exit_status = 5});
        EXPECT_EQ(run.written, run.issued);
    }
    std::cout << ways().size() << " runs\n";
}

TEST(HostSurroundings, StandardDescriptors)
{
    std::vector<std::string> cases;
    for (unsigned closed = 1; closed < 8; ++closed) {
        std::string closing;
        for (unsigned fd = 0; fd < 3; ++fd) {
            closing += (closed >> fd & 1U) != 0 ? "close " + std::to_string(fd) + "; " : "";
        }
        cases.push_back(closing + "init; " + load(50));
        cases.push_back("init; op 3; " + closing + load(50));
    }
    for (const char* end : {"full_pipe", "broken_pipe", "/dev/full"}) {
        cases.push_back("redirect 2 " + std::string(end) + "; init; " + load(50));
        cases.push_back("init; redirect 2 " + std::string(end) + "; op_key -5 3; " + load(50));
    }
    int runs = 0;
    for (const std::string& script : cases) {
        for (const writing& way : ways()) {
            SCOPED_TRACE(script + way.name);
            const observed_run run = observe(way.settings, script + "exit 5");
            expect_unharmed(run, {.exit_status = 5, .untold = true});
            EXPECT_EQ(run.written, run.issued);
            EXPECT_EQ(run.counts.count("counters"), 1U);
            ++runs;
        }
    }
    std::cout << runs << " runs\n";
}

TEST(HostSurroundings, HostileLogDirectory)
{
    // Each takes the place of the trace files, while no context has one of them open.
    const std::string replace = "for f in *.plog.txt *.flog.txt; do [ -e $f ] || continue; rm -f $f; ";
    const struct {
        const char* name;
        std::string plant;
        bool gives_up_root;
    } plants[] = {
        {"link", replace + "ln -s $1/victim $f; done", false},
        {"link to nowhere", replace + "ln -s $1/planted $f; done", false},
        {"hard link", replace + "ln $1/victim $f; done", false},
        {"FIFO", replace + "mkfifo $f; done", false},
        {"directory", replace + "mkdir $f; done", false},
        {"device", replace + "mknod $f c 1 7; done", false},
        {"somebody else's", replace + "touch $f; chmod 600 $f; done; chmod 1777 .", true},
        {"no permission", "chmod 555 .", true},
        {"removed", "rm -rf ../in_use/*; rmdir ../in_use", false},
    };
    int runs = 0;
    for (const auto& plant : plants) {
        for (const writing& way : ways()) {
            SCOPED_TRACE(std::string(plant.name) + ", " + way.name);
            if (plant.gives_up_root && !is_root()) {
                GTEST_SKIP() << "no user to change to";
            }
            const auto directory = open_to_all();
            const temp_dir outside;
            const temp_dir data;
            chmod(outside.path().c_str(), 0777);
            outside.write("victim", "precious");
            const std::string data_file = data.file("ostrum_data.dat");
            const std::string log_directory = directory->file("in_use");
            std::filesystem::create_directory(log_directory);
            chmod(log_directory.c_str(), 0777);
            directory->write("plant", "cd in_use; " + plant.plant);
            std::vector<host_setting> settings = way.settings;
            settings.push_back({"ostrum_data_file", data_file.c_str()});
            settings.push_back({"ostrum_logdir", log_directory.c_str()});
            const std::string some = "op_key 1 3; op_key 1 4; op_key 1 5; release_key 1; ";
            std::string script = "init; " + some + "sleep 20; shell sh plant " + outside.path();
            script += plant.gives_up_root ? "; user 65534; " : "; ";
            script += some + some + "op 3; op 4; exit 5";
            const observed_run run = observe(settings, script, {.directory = directory});
            // What a link shows, the checks take for a trace file.
            expect_unharmed(run, {.exit_status = 5, .may_cut = true, .untold = true});
            EXPECT_NE(run.incidents(), "") << "what was planted has not been met";
            EXPECT_EQ(temp_dir::read(outside.file("victim")), "precious");
            EXPECT_EQ(std::distance(std::filesystem::directory_iterator(outside.path()), {}), 1);
            ++runs;
        }
    }
    std::cout << runs << " runs\n";
}

TEST(HostSurroundings, TablesAndStacksReachTheirEnds)
{
    const struct {
        const char* script;
        long written; // of those issued
        std::map<std::string, uint64_t> counts;
        const char* message;
    } cases[] = {
        {"repeat 150 {start 3}; repeat 150 {end}", 100, {{"counters", 1}}, ""},
        {"op_range 1 4097", 4097, {{"counters", 4096}}, ""},
        {"op_range 1 8193 7", 8193, {{"counters", 4096}, {"errors", 8192}}, ""},
        {"op 3; variables 513",
         1,
         {{"counters", 1}, {"variables", 512}},
         "rt_variable_add : variable table is full - 512 entries used"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.script);
        const observed_run run =
            observe({{"ostrum_error_counter_level", "63"}}, std::string(c.script) + "; exit 5");
        expect_unharmed(run, {.exit_status = 5, .untold = true});
        EXPECT_EQ(run.written, c.written);
        for (const auto& [table, count] : c.counts) {
            EXPECT_EQ(run.counts.at(table), count) << table;
        }
        EXPECT_NE(run.incidents().find(c.message), std::string::npos) << run.incidents();
    }
    std::cout << std::size(cases) << " runs\n";
}
