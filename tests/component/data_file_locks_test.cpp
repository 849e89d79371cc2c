#include "component/data_file_fixture.h"

#include <array>
#include <atomic>
#include <vector>

#include <fcntl.h>

namespace {

using ostrum::lock_method;

class data_file_locks_test : public data_file_fixture {
protected:
    bool is_free(int32_t type)
    {
        pthread_mutex_t& mutex = image().locks[type].mutex;
        const bool taken = pthread_mutex_trylock(&mutex) == 0;
        if (taken) {
            pthread_mutex_unlock(&mutex);
        }
        return taken;
    }
    // As another process would leave it: 1 = locked, also by a dead one, 0 = free.
    static void set_lock_word(pthread_mutex_t& mutex, int word) { memcpy(&mutex, &word, sizeof word); }
};

constexpr int64_t limit_ms = 1000; // for which a counter's lock and that of the tables are waited for

TEST_F(data_file_locks_test, LocksByTypeAndUnlocksOnlyWhatItLocked)
{
    open();
    for (int32_t type = 0; type < 5; ++type) {
        __perf_data_file_lock(handle_, type);
        EXPECT_FALSE(is_free(type));
        __perf_data_file_unlock(handle_, type);
        EXPECT_TRUE(is_free(type));
    }
    pthread_mutex_lock(&image().locks[2].mutex);
    __perf_data_file_unlock(handle_, 2);
    EXPECT_FALSE(is_free(2)) << "it is somebody else's";
    pthread_mutex_unlock(&image().locks[2].mutex);

    for (auto* call : {__perf_data_file_lock, __perf_data_file_unlock}) {
        for (const int32_t type : {-1, 5}) {
            EXPECT_THAT(fake_os::captured_stderr([&] { call(handle_, type); }),
                        testing::EndsWith("__perf_data_file_lock: invalid lock-type[" + std::to_string(type) +
                                          "]\n"));
        }
    }
    __perf_data_file_lock(nullptr, 2);
    EXPECT_FALSE(static_cast<bool>(ostrum::data_file_guard(nullptr, DATA_FILE_LOCK_TABLES)));
}

TEST_F(data_file_locks_test, TwoProcessesAddUpInOneEntry)
{
    constexpr uint64_t adds = 10'000;
    for (const lock_method method : {lock_method::mapped_mutex, lock_method::advisory_file_lock}) {
        SCOPED_TRACE(static_cast<int>(method));
        ostrum::settings_for_startup().locks = method;
        open(host_flags | DATA_FILE_RESET);
        const auto work = [this] {
            std::atomic_ref together(image().reserved);
            for (++together; together < 2;) {
            }
            ostrum::counter_entry* entry = nullptr;
            for (uint64_t i = 0; i < adds; ++i) {
                add_counter(static_cast<int32_t>(i % 3));
                entry = entry != nullptr ? entry : add_counter(7);
                rt_counter_update(entry, 1, 2, 3, 4, 5, 6);
                add_error(1);
            }
        };
        const pid_t child = fork();
        work();
        if (child == 0) {
            _exit(0);
        }
        waitpid(child, nullptr, 0);
        EXPECT_EQ(image().counter_count, 4U);
        EXPECT_EQ(image().errors[0].errcnt, 2 * adds);
        const ostrum::counter_entry* updated = add_counter(7, 0);
        EXPECT_EQ(updated->calls, 2 * (adds + 1));
        EXPECT_EQ(updated->s_cpu_t, 12 * adds);
    }
}

TEST_F(data_file_locks_test, AdvisoryLocksGoThroughTheDescriptorAndOffsetInTheSlot)
{
    ostrum::settings_for_startup().locks = lock_method::advisory_file_lock;
    open();
    ostrum::counter_entry* entry = add_counter(1);
    const auto is_locked_for_others = [this](int64_t offset) { // in all of its 64 bytes
        return in_child([this, offset] {
                   struct flock wanted {
                       F_WRLCK, SEEK_SET, offset + 63, 1, 0
                   };
                   fcntl(handle_->fd, F_GETLK, &wanted);
                   _exit(wanted.l_type == F_WRLCK && wanted.l_start == offset && wanted.l_len == 64 ? 0 : 1);
               }) == 0;
    };
    for (const auto& [slot, offset] : {std::pair(&image().locks[4], 288), {&entry->lock, 368}}) {
        EXPECT_EQ(slot->fd, handle_->fd);
        EXPECT_EQ(slot->offset, offset);
        fake_os::fail(fake_os::call::lock_range, 1, EINTR);
        ASSERT_TRUE(ostrum::lock_slot_acquire(*slot, 0)) << "a signal while it waits is no failure";
        EXPECT_TRUE(is_locked_for_others(offset));
        ostrum::lock_slot_release(*slot);
        EXPECT_FALSE(is_locked_for_others(offset));
    }
    // A descriptor of another process: the lock fails unnoticed and the update is made.
    entry->lock.fd = 9999;
    errno = 0;
    rt_counter_update(entry, 5, 0, 0, 0, 0, 0);
    EXPECT_EQ(entry->calls, 6U);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(__ostrum_file_lock(9999, 0, "name"), -1);
}

TEST_F(data_file_locks_test, ALockHeldByADeadProcessIsGivenUpAndThenOnlyTried)
{
    open();
    ostrum::counter_entry* entry = add_counter(1);
    set_lock_word(entry->lock.mutex, 1);
    const auto update = [&] { rt_counter_update(entry, 10, 0, 0, 0, 0, 0); };
    EXPECT_GE(milliseconds(update), limit_ms);
    EXPECT_LT(milliseconds(update), limit_ms);
    EXPECT_EQ(entry->calls, 1U) << "nothing is written without the lock";
    set_lock_word(entry->lock.mutex, 0);
    update();
    EXPECT_EQ(entry->calls, 11U);
    set_lock_word(entry->lock.mutex, 1);
    EXPECT_GE(milliseconds(update), limit_ms) << "one that could be had is waited for again";

    set_lock_word(image().locks[DATA_FILE_LOCK_TABLES].mutex, 1);
    EXPECT_GE(milliseconds([&] { EXPECT_EQ(add_counter(2), nullptr); }), limit_ms);
    const int64_t later = milliseconds([&] {
        EXPECT_EQ(add_counter(2), nullptr);
        EXPECT_EQ(add_error(2), nullptr);
        EXPECT_EQ(perf_data_file_var_set(handle_, nullptr, "time_on", "1"), -1);
        EXPECT_GE(perf_data_file_var_last_mod_t(handle_), 0);
        int32_t count = 0;
        const c_block<ostrum::counter_entry> copies(rt_counters_copy(handle_, 1, &count));
        EXPECT_EQ(count, 1) << "a look at the file of a dead host";
        EXPECT_EQ(entry->calls, 11U) << "but nothing is cleared";
    });
    EXPECT_LT(later, limit_ms);
    open(); // initialises the header locks again
    EXPECT_NE(add_counter(2), nullptr);
}

TEST_F(data_file_locks_test, ManyLockedEntriesDelayAPassOnlyOnce)
{
    open();
    for (int32_t i = 0; i < 100; ++i) {
        set_lock_word(add_counter(i + 1, 5)->lock.mutex, 1);
    }
    int32_t count = 0;
    const int64_t took = milliseconds([&] {
        const c_block<ostrum::counter_entry> copies(rt_counters_copy(handle_, 1, &count));
        rt_counters_reset(handle_);
    });
    EXPECT_LT(took, 2 * limit_ms);
    EXPECT_EQ(count, 100);
    set_lock_word(image().counters[99].lock.mutex, 0);
    rt_counters_reset(handle_);
    EXPECT_EQ(image().counters[99].calls, 0U) << "one that can be had is cleared behind those that cannot";
    EXPECT_EQ(image().counters[0].calls, 5U);
}

TEST_F(data_file_locks_test, AnotherLockMethodTakesOverTheEntriesOfTheOneBefore)
{
    lock_method& method = ostrum::settings_for_startup().locks;
    for (const lock_method first : {lock_method::advisory_file_lock, lock_method::mapped_mutex}) {
        SCOPED_TRACE(static_cast<int>(first));
        method = first;
        open(host_flags | DATA_FILE_RESET);
        memset(image().counters, 0, sizeof image().counters);
        ostrum::counter_entry* entry = add_counter(1);
        method =
            first == lock_method::mapped_mutex ? lock_method::advisory_file_lock : lock_method::mapped_mutex;
        ostrum::initialise_header_locks(*handle_, true);
        ASSERT_EQ(add_counter(1), entry);
        EXPECT_EQ(entry->calls, 2U);
        EXPECT_EQ(entry->lock.offset, 368);
    }
}

TEST_F(data_file_locks_test, AHostThatStartsDisturbsNoLockThatCanBeHad)
{
    open();
    pthread_mutex_t& mutex = image().locks[DATA_FILE_LOCK_TABLES].mutex;
    const unsigned marked = mutex.__data.__nusers = 77; // lost when it is initialised
    ASSERT_NE(open(), nullptr);
    EXPECT_EQ(image().locks[DATA_FILE_LOCK_TABLES].mutex.__data.__nusers, marked);
    set_lock_word(image().locks[DATA_FILE_LOCK_TABLES].mutex, 1); // its holder is dead
    ASSERT_NE(open(), nullptr);
    EXPECT_NE(add_counter(1), nullptr);
}

TEST_F(data_file_locks_test, BytesThatAreNoMutexOfOursAreNeverLocked)
{
    open();
    ostrum::counter_entry* entry = add_counter(1);
    std::vector<std::array<unsigned char, sizeof(pthread_mutex_t)>> hostile;
    for (const unsigned fill : {0x00U, 0x01U, 0x7fU, 0x80U, 0xffU}) {
        hostile.emplace_back().fill(static_cast<unsigned char>(fill));
    }
    for (unsigned kind = 0; kind < 256; ++kind) { // among them robust, priority and recursive kinds
        if (kind != 0x80) {
            hostile.emplace_back(hostile[kind % 2])[16] = static_cast<unsigned char>(kind);
        }
    }
    hostile.emplace_back(hostile[0])[16] = 0x80; // our kind, but marked for lock elision
    hostile.back()[17] = 0x01;
    for (const auto& bytes : hostile) {
        const int64_t took = milliseconds([&] {
            memcpy(&entry->lock.mutex, bytes.data(), bytes.size());
            rt_counter_update(entry, 1, 1, 1, 1, 1, 1);
            memcpy(&image().locks[DATA_FILE_LOCK_TABLES].mutex, bytes.data(), bytes.size());
            EXPECT_EQ(add_counter(2), nullptr);
        });
        EXPECT_LT(took, limit_ms);
        EXPECT_EQ(memcmp(&entry->lock.mutex, bytes.data(), bytes.size()), 0);
    }
    EXPECT_EQ(entry->calls, 1U);
}

} // namespace
