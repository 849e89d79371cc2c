// What surrounds a host goes wrong for real: full disks, limits, standard descriptors, the log directory; and
// tables reach their ends.
#include <filesystem>

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

// A file system of so many bytes on the directory, seen by this process and its hosts only. False: refused.
bool make_small(const temp_dir& directory, const char* size)
{
    static const bool apart =
        unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    const std::string options = std::string("mode=0777,size=") + size;
    return apart && mount("tmpfs", directory.path().c_str(), "tmpfs", 0, options.c_str()) == 0;
}

using LimitedHosts = unsanitized_test; // which takes more memory, descriptors and stack

} // namespace

TEST(HostSurroundings, FullDisks)
{
    case_count runs;
    for (const char* size : {"64k", "1m", "6m"}) {
        for (const writing& way : ways()) {
            for (const bool data_file_elsewhere : {false, true}) {
                SCOPED_TRACE(std::string(size) + ", " + way.name +
                             (data_file_elsewhere ? ", data file elsewhere" : ""));
                const auto directory = std::make_shared<temp_dir>();
                const temp_dir elsewhere;
                const std::string data_file = elsewhere.file("ostrum_data.dat");
                if (!make_small(*directory, size)) {
                    GTEST_SKIP() << "file systems cannot be mounted here";
                }
                const observed_run run =
                    observe(with(way.settings,
                                 {{"ostrum_data_file", data_file_elsewhere ? data_file.c_str() : nullptr}}),
                            "init; " + load(3000) + "query; exit 5", {.directory = directory});
                umount2(directory->path().c_str(), MNT_DETACH);
                expect_unharmed(run, {.exit_status = 5, .may_cut = true});
                const bool largest = size == std::string("6m");
                EXPECT_EQ(run.enabled(), data_file_elsewhere || largest);
                EXPECT_EQ(run.written == run.issued, data_file_elsewhere && largest) << "the disk is full";
                runs.next();
            }
        }
    }
}

TEST_F(LimitedHosts, Limits)
{
    const struct {
        std::string resource;
        std::string in_use; // which the amounts come on top of
        std::vector<int> amounts;
    } limits[] = {
        {"fsize", "", {0, 1, 100, 1000, 65'536, 5'800'543, 5'800'544}},
        {"nofile", "", {3, 4, 5, 6, 7}},
        {"as",
         "$(cut -d' ' -f1 /proc/$PPID/statm)*4096+",
         {0, 1 << 20, 4 << 20, 5'800'544, 6 << 20, 9 << 20, 20 << 20}},
        {"nproc", "", {0, 1}},
    };
    case_count runs;
    for (const auto& limit : limits) {
        for (const int amount : limit.amounts) {
            for (const writing& way : ways()) {
                const std::string set =
                    limit.resource + "=$((" + limit.in_use + std::to_string(amount) + "))";
                SCOPED_TRACE(set + ", " + way.name);
                std::string script = is_root() ? "user 65534; " : "";
                script += "shell prlimit --pid=$PPID --" + set + ":; "; // the host takes it back at exit
                script += load(300) + "query; exit 5";
                expect_unharmed(observe(way.settings, script, {.directory = open_to_all()}),
                                {.exit_status = 5, .may_cut = true, .untold = amount < 1000});
                runs.next();
            }
        }
    }
}

TEST_F(LimitedHosts, SmallStacks)
{
    case_count runs;
    for (const writing& way : ways()) {
        SCOPED_TRACE(way.name);
        const observed_run run = observe(way.settings, "small_stack 64 {init; " + load(100) +
                                                           "query; select 1}; " + load(100) + "exit 5");
        expect_unharmed(run, {.exit_status = 5, .complete = true});
        runs.next();
    }
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
    case_count runs;
    for (const std::string& script : cases) {
        for (const writing& way : ways()) {
            SCOPED_TRACE(script + way.name);
            const observed_run run = observe(way.settings, script + "exit 5");
            expect_unharmed(run, {.exit_status = 5, .untold = true});
            EXPECT_EQ(run.written, run.issued);
            EXPECT_EQ(run.counts.count("counters"), 1U);
            runs.next();
        }
    }
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
    case_count runs;
    for (const auto& plant : plants) {
        for (const writing& way : ways()) {
            SCOPED_TRACE(std::string(plant.name) + ", " + way.name);
            if (plant.gives_up_root && !is_root()) {
                GTEST_SKIP() << "no user to change to";
            }
            const auto directory = open_to_all();
            const auto outside = open_to_all();
            const temp_dir data;
            outside->write("victim", "precious");
            const std::string data_file = data.file("ostrum_data.dat");
            const std::string log_directory = directory->file("in_use");
            std::filesystem::create_directory(log_directory);
            chmod(log_directory.c_str(), 0777);
            directory->write("plant", "cd in_use; " + plant.plant);
            const std::string some = "op_key 1 3; op_key 1 4; op_key 1 5; release_key 1; ";
            std::string script = "init; " + some + "sleep 20; shell sh plant " + outside->path();
            script += plant.gives_up_root ? "; user 65534; " : "; ";
            script += some + some + "op 3; op 4; exit 5";
            const observed_run run = observe(with(way.settings, {{"ostrum_data_file", data_file.c_str()},
                                                                 {"ostrum_logdir", log_directory.c_str()}}),
                                             script, {.directory = directory});
            // What a link shows, the checks take for a trace file.
            expect_unharmed(run, {.exit_status = 5, .may_cut = true, .untold = true});
            EXPECT_NE(run.incidents(), "") << "what was planted has not been met";
            EXPECT_EQ(outside->text_of(""), "precious");
            EXPECT_EQ(outside->files_ending("").size(), 1U);
            runs.next();
        }
    }
}

namespace {

// The command once for each number from 1 to `count`.
std::string numbered(int count, const std::string& before, const std::string& behind)
{
    std::string commands;
    for (int n = 1; n <= count; ++n) {
        commands += before + std::to_string(n) + behind + ";";
    }
    return commands;
}

} // namespace

TEST(HostSurroundings, TablesAndStacksReachTheirEnds)
{
    const struct {
        std::string script;
        long written; // of those issued
        std::map<std::string, uint64_t> counts;
        const char* message;
    } cases[] = {
        {"repeat 150 {start 3}; repeat 150 {end}; ", 100, {{"counters", 1}}, ""},
        {numbered(4097, "op ", ""), 4097, {{"counters", 4096}}, ""},
        {numbered(8193, "op ", " 7"), 8193, {{"counters", 4096}, {"errors", 8192}}, ""},
        {"op 3;" + numbered(513, "variable new_", " 1"),
         1,
         {{"counters", 1}, {"variables", 512}},
         "rt_variable_add : variable table is full - 512 entries used"},
    };
    case_count runs;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.script.substr(0, 20));
        const observed_run run = observe({{"ostrum_error_counter_level", "63"}}, c.script + "exit 5");
        expect_unharmed(run, {.exit_status = 5, .untold = true});
        EXPECT_EQ(run.written, c.written);
        for (const auto& [table, count] : c.counts) {
            EXPECT_EQ(run.counts.at(table), count) << table;
        }
        EXPECT_TRUE(run.tells(c.message)) << run.incidents();
        runs.next();
    }
}
