#include "perf_log/context/context_list.h"

#include <cerrno>

#include "os/os_calls.h"
#include "process_state/process_state.h"
#include "util/diagnostics.h"
#include "util/look_until.h"
#include "util/resources.h"
#include "util/time_value.h"

namespace ostrum {

namespace {

struct list_entry {
    list_entry* next;
    list_entry* previous;
    list_entry* next_in_bucket; // newest first, as in the list
    log_context* context;       // holds one reference
    uint64_t last_visit;
};

constexpr size_t bucket_count = 256;

// lip_list_mutex guards everything here.
struct context_list {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    list_entry* head = nullptr;
    list_entry* buckets[bucket_count] = {};
    uint64_t visits = 0;
    bool closed = false;              // exit has begun
    list_entry* left_alone = nullptr; // of the processes that this one was forked from
};
constinit context_list the_list;

class list_guard {
public:
    list_guard() { pthread_mutex_lock(&the_list.mutex); }
    ~list_guard() { pthread_mutex_unlock(&the_list.mutex); }
    list_guard(const list_guard&) = delete;
    list_guard& operator=(const list_guard&) = delete;
};

list_entry*& bucket_of(int32_t pid, int32_t key)
{
    const uint32_t mixed = (static_cast<uint32_t>(pid) * 31U + static_cast<uint32_t>(key)) * 0x9E3779B1U;
    return the_list.buckets[mixed >> 24];
}

bool is_of(const log_context& context, int32_t pid, int32_t key)
{
    return context.trace.pid == pid && context.trace.key == key;
}

list_entry* find_entry(int32_t pid, int32_t key)
{
    list_entry* entry = bucket_of(pid, key);
    while (entry != nullptr && !is_of(*entry->context, pid, key)) {
        entry = entry->next_in_bucket;
    }
    return entry;
}

void link_at_head(list_entry* entry)
{
    entry->next = the_list.head;
    if (the_list.head != nullptr) {
        the_list.head->previous = entry;
    }
    the_list.head = entry;
    list_entry*& bucket = bucket_of(entry->context->trace.pid, entry->context->trace.key);
    entry->next_in_bucket = bucket;
    bucket = entry;
}

// The entry is freed; its reference goes to the caller.
log_context* unlink(list_entry* entry)
{
    log_context* context = entry->context;
    list_entry** link = &bucket_of(context->trace.pid, context->trace.key);
    while (*link != entry) {
        link = &(*link)->next_in_bucket;
    }
    *link = entry->next_in_bucket;
    (entry->previous != nullptr ? entry->previous->next : the_list.head) = entry->next;
    if (entry->next != nullptr) {
        entry->next->previous = entry->previous;
    }
    os::release(entry);
    return context;
}

// Takes over the context's first reference for the list and adds one for the caller. On failure the
// context is given back.
log_context* link_new_entry(log_context* context, int32_t pid, int32_t key)
{
    list_entry* entry = heap_zeroed<list_entry>().release();
    if (entry == nullptr) {
        err_print("lip_list_add : out of memory adding loginfo for pid/key[%d/%d]\n", pid, key);
        return nullptr;
    }
    pin(context);
    entry->context = context;
    link_at_head(entry);
    return context;
}

// A context that never came into use: nothing to flush, no files.
void discard_unused(log_context* context)
{
    bt_destroy(context->trace.tree);
    bt_destroy(context->single_tree);
    unpin(context);
}

log_context* make_and_link(int32_t pid, int32_t key)
{
    log_context* context = init_log_info(pid, key);
    if (context == nullptr) {
        err_print("lip_list_add : failed initialising loginfo for pid/key[%d/%d]\n", pid, key);
        err_print("lip_list_add : out of memory adding loginfo for pid/key[%d/%d]\n", pid, key);
        return nullptr;
    }
    if (debug_on(debug_general)) {
        debug_print("lip_list_add : created new loginfo new_lip[%p] for pid/key[%d/%d]\n",
                    static_cast<void*>(context), pid, key);
    }
    log_context* linked = link_new_entry(context, pid, key);
    if (linked == nullptr) {
        discard_unused(context);
    }
    return linked;
}

log_context* find_or_make(log_context* existing, int32_t pid, int32_t key, bool& added)
{
    const list_guard guard;
    if (the_list.closed) {
        return nullptr;
    }
    if (existing == nullptr) {
        if (const list_entry* entry = find_entry(pid, key)) {
            pin(entry->context);
            return entry->context;
        }
    }
    added = true;
    return existing != nullptr ? link_new_entry(existing, pid, key) : make_and_link(pid, key);
}

// The contexts of the parent's other threads mean nothing in a child, but their files are open in it.
// They are closed, but for those of a context that was in use at the fork; nothing is freed.
void leave_inherited_contexts_alone()
{
    list_entry** last = &the_list.head;
    for (; *last != nullptr; last = &(*last)->next) {
        log_context& context = *(*last)->context;
        if (!is_held(context.lock)) {
            close_files(context);
        }
    }
    *last = the_list.left_alone;
    the_list.left_alone = the_list.head;
}

} // namespace

void initialise_context_list()
{
    pthread_mutex_init(&the_list.mutex, nullptr);
}

void empty_list_after_fork()
{
    if (pthread_mutex_trylock(&the_list.mutex) == 0) { // else another thread was in the midst of a change
        leave_inherited_contexts_alone();
        pthread_mutex_unlock(&the_list.mutex); // given back before it is made anew
    }
    pthread_mutex_init(&the_list.mutex, nullptr);
    the_list.head = nullptr;
    the_list.closed = false;
    for (list_entry*& bucket : the_list.buckets) {
        bucket = nullptr;
    }
}

bool close_context_list()
{
    constexpr int32_t looks = 1000; // a second in all
    if (!look_until(looks, tv_per_ms, [] { return pthread_mutex_trylock(&the_list.mutex) != EBUSY; })) {
        return false;
    }
    the_list.closed = true;
    pthread_mutex_unlock(&the_list.mutex);
    return true;
}

log_context* unlink_first()
{
    const list_guard guard;
    return the_list.head != nullptr ? unlink(the_list.head) : nullptr;
}

uint64_t begin_visit()
{
    const list_guard guard;
    return ++the_list.visits;
}

int32_t pin_unvisited(log_context** out, int32_t most, uint64_t visit)
{
    const list_guard guard;
    int32_t count = 0;
    for (list_entry* entry = the_list.head; entry != nullptr && count < most; entry = entry->next) {
        const trace_source& source = entry->context->trace;
        // pid and key never change, so they may be read without the context's lock.
        if (entry->last_visit >= visit || source.pid != process_id() || source.key == own_thread_key) {
            continue;
        }
        entry->last_visit = visit;
        pin(entry->context);
        out[count++] = entry->context;
    }
    return count;
}

} // namespace ostrum

using namespace ostrum;

log_context* lip_list_add(log_context* existing, int32_t pid, int32_t key)
{
    bool added = false;
    log_context* context = find_or_make(existing, pid, key, added);
    if (added && context != nullptr && debug_on(debug_general)) {
        debug_print("lip_list_add : added newp[%p] new list is:\n", static_cast<void*>(context));
        lip_list_print();
    }
    return context;
}

log_context* lip_list_del(log_context* context, int32_t pid, int32_t key)
{
    const list_guard guard;
    if (context == nullptr) {
        list_entry* entry = find_entry(pid, key);
        return entry != nullptr ? unlink(entry) : nullptr;
    }
    for (list_entry* entry = the_list.head; entry != nullptr; entry = entry->next) {
        if (entry->context == context) {
            return unlink(entry);
        }
    }
    return nullptr;
}

void lip_list_print(void)
{
    const list_guard guard;
    debug_print("lip_list_print : g_lip_list[%p]:\n", static_cast<void*>(the_list.head));
    int index = 0;
    for (const list_entry* entry = the_list.head; entry != nullptr; entry = entry->next) {
        const trace_source& source = entry->context->trace;
        debug_print("lip_list_print : elem[%d] lip[%p] pid[%d] tid[%lu] key[%d]\n", index++,
                    static_cast<void*>(entry->context), source.pid, source.tid, source.key);
    }
}
