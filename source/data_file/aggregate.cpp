#include "data_file/aggregate.h"

#include <bit>
#include <cstring>

#include "config/settings.h"
#include "data_file/layout.h"
#include "util/byte_hash.h"

namespace ostrum {

namespace {

constexpr key_field counter_keys[] = {
    {keep_opcode, field_kind::number, offsetof(counter_entry, opcode)},
    {keep_opcode, field_kind::text, offsetof(counter_entry, opname)},
    {keep_obj_type, field_kind::text, offsetof(counter_entry, obj_type)},
    {keep_program, field_kind::text, offsetof(counter_entry, program)},
    {keep_opflags, field_kind::number, offsetof(counter_entry, opflags)},
    {keep_fname, field_kind::text, offsetof(counter_entry, fname)},
    {keep_lineno, field_kind::number, offsetof(counter_entry, lineno)},
    {keep_db_number, field_kind::number, offsetof(counter_entry, db_number)}};
constexpr size_t counter_totals[] = {offsetof(counter_entry, recs),    offsetof(counter_entry, calls),
                                     offsetof(counter_entry, errors),  offsetof(counter_entry, total_t),
                                     offsetof(counter_entry, u_cpu_t), offsetof(counter_entry, s_cpu_t)};

constexpr key_field error_keys[] = {{error_by_dbno, field_kind::number, offsetof(error_entry, dbno)},
                                    {error_by_program, field_kind::text, offsetof(error_entry, program)},
                                    {error_by_opcode, field_kind::number, offsetof(error_entry, opcode)},
                                    {error_by_opcode, field_kind::text, offsetof(error_entry, opname)},
                                    {error_by_class, field_kind::number, offsetof(error_entry, err_class)},
                                    {error_by_location, field_kind::number, offsetof(error_entry, location)},
                                    {error_by_errnum, field_kind::number, offsetof(error_entry, errnum)}};
constexpr size_t error_totals[] = {offsetof(error_entry, errcnt)};

uint64_t word_at(const char* record, size_t offset)
{
    uint64_t word = 0;
    memcpy(&word, record + offset, sizeof(word));
    return word;
}

void add_word(char* record, size_t offset, uint64_t amount)
{
    const uint64_t sum = word_at(record, offset) + amount;
    memcpy(record + offset, &sum, sizeof(sum));
}

size_t length_of(const char* record, const key_field& field)
{
    return field.kind == field_kind::text ? strnlen(record + field.offset, text_bytes) : sizeof(uint64_t);
}

// The merged records take the places of the first ones, which have been looked at by then.
class aggregation {
public:
    aggregation(const record_shape& shape, char* records, size_t most, uint32_t kept)
        : shape_(shape), records_(records), kept_(kept), slots_count_(std::bit_ceil(most * 2)),
          slots_(heap_zeroed<uint32_t>(slots_count_))
    {}
    [[nodiscard]] bool ready() const { return static_cast<bool>(slots_); }
    [[nodiscard]] size_t count() const { return count_; }

    void add(const char* record)
    {
        size_t slot = hash_of(record) & (slots_count_ - 1);
        while (slots_.get()[slot] != 0) {
            char* known = record_at(slots_.get()[slot] - 1);
            if (is_equal(known, record)) {
                add_totals(known, record);
                return;
            }
            slot = (slot + 1) & (slots_count_ - 1);
        }
        append(record);
        slots_.get()[slot] = static_cast<uint32_t>(count_);
    }

private:
    char* record_at(size_t index) { return records_ + index * shape_.bytes; }
    [[nodiscard]] bool is_kept(const key_field& field) const { return (kept_ & field.bit) != 0; }

    [[nodiscard]] uint64_t hash_of(const char* record) const
    {
        uint64_t hash = 0;
        for (const key_field& field : shape_.keys) {
            if (is_kept(field)) {
                hash = hash_bytes(hash, record + field.offset, length_of(record, field));
            }
        }
        return hash ^ (hash >> 32);
    }
    [[nodiscard]] bool is_equal(const char* known, const char* record) const
    {
        for (const key_field& field : shape_.keys) {
            if (!is_kept(field)) {
                continue;
            }
            const size_t length = length_of(record, field);
            if (length_of(known, field) != length ||
                memcmp(known + field.offset, record + field.offset, length) != 0) {
                return false;
            }
        }
        return true;
    }
    void add_totals(char* known, const char* record) const
    {
        for (const size_t offset : shape_.totals) {
            add_word(known, offset, word_at(record, offset));
        }
    }
    void append(const char* record)
    {
        char* added = record_at(count_++);
        if (added != record) {
            memcpy(added, record, shape_.bytes);
        }
        for (const key_field& field : shape_.keys) {
            if (!is_kept(field)) {
                memset(added + field.offset, 0,
                       field.kind == field_kind::text ? text_bytes : sizeof(uint64_t));
            }
        }
    }

    const record_shape& shape_;
    char* records_;
    uint32_t kept_;
    size_t slots_count_;       // a power of two, at least twice the records
    heap_ptr<uint32_t> slots_; // open addressing: number of the record, from 1; 0 = free
    size_t count_ = 0;
};

} // namespace

const record_shape counter_shape{sizeof(counter_entry), counter_keys, counter_totals};
const record_shape error_shape{sizeof(error_entry), error_keys, error_totals};

size_t aggregate_records(const record_shape& shape, char* records, size_t count, uint32_t kept)
{
    aggregation merged(shape, records, count, kept);
    if (!merged.ready()) {
        return 0;
    }
    for (size_t i = 0; i < count; ++i) {
        merged.add(records + i * shape.bytes);
    }
    return merged.count();
}

} // namespace ostrum
