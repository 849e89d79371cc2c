#include "wire.h"

#include <algorithm>
#include <array>
#include <string>

#include "fields.h"

namespace catalog {
namespace {

constexpr std::array<uint8_t, 4> magic{'C', 'A', 'T', '1'};

class writer {
public:
    explicit writer(std::vector<uint8_t>& out) : out_(out) {}

    void number(uint64_t value, size_t bytes)
    {
        for (size_t i = 0; i < bytes; ++i)
            out_.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
    void text(const std::string& value)
    {
        number(value.size(), 4);
        out_.insert(out_.end(), value.begin(), value.end());
    }
    void list(qel_flist_t* list, int depth)
    {
        if (depth > max_nesting)
            throw wire_error("field list nested too deeply");
        const size_t count_at = out_.size();
        uint64_t count = 0;
        number(0, 2);
        for (const uint32_t field : all_fields)
            count += value(list, field, depth) ? 1u : 0u;
        out_[count_at] = static_cast<uint8_t>(count); // the dictionary holds fewer than 256 fields
        if (out_.size() > max_body_bytes + frame_header_bytes)
            throw wire_error("field list too large for a frame");
    }

private:
    bool value(qel_flist_t* list, uint32_t field, int depth)
    {
        switch (QEL_FLD_TYPE(field)) {
        case QEL_TYPE_INT:
            return when_present(field, get_int(list, field),
                                [&](int32_t v) { number(static_cast<uint32_t>(v), 4); });
        case QEL_TYPE_STR:
            return when_present(field, get_text(list, field), [&](const std::string& v) { text(v); });
        case QEL_TYPE_XOID:
            return when_present(field, get_object(list, field), [&](const object_id& v) {
                number(static_cast<uint64_t>(v.db), 8);
                number(static_cast<uint64_t>(v.id), 8);
                text(v.type);
            });
        default:
            return array(list, field, depth);
        }
    }
    template <class Value, class Write>
    bool when_present(uint32_t field, const std::optional<Value>& found, Write write)
    {
        if (!found)
            return false;
        number(field, 4);
        write(*found);
        return true;
    }
    bool array(qel_flist_t* list, uint32_t field, int depth)
    {
        const std::vector<qel_flist_t*> found = elements(list, field);
        if (found.empty())
            return false;
        number(field, 4);
        number(found.size(), 4);
        for (qel_flist_t* element : found)
            this->list(element, depth + 1);
        return true;
    }

    std::vector<uint8_t>& out_;
};

class reader {
public:
    explicit reader(std::span<const uint8_t> bytes) : left_(bytes) {}

    [[nodiscard]] bool at_end() const { return left_.empty(); }

    void list(qel_flist_t* into, int depth)
    {
        if (depth > max_nesting)
            throw wire_error("field list nested too deeply");
        const uint64_t count = number(2);
        for (uint64_t i = 0; i < count; ++i)
            value(into, static_cast<uint32_t>(number(4)), depth);
    }

private:
    std::span<const uint8_t> take(size_t bytes)
    {
        if (bytes > left_.size())
            throw wire_error("message ends inside a value");
        const auto taken = left_.first(bytes);
        left_ = left_.subspan(bytes);
        return taken;
    }
    uint64_t number(size_t bytes)
    {
        uint64_t value = 0;
        const auto taken = take(bytes);
        for (size_t i = 0; i < bytes; ++i)
            value |= static_cast<uint64_t>(taken[i]) << (8 * i);
        return value;
    }
    std::string text()
    {
        const auto bytes = take(number(4));
        if (std::find(bytes.begin(), bytes.end(), uint8_t{0}) != bytes.end())
            throw wire_error("zero byte inside a text");
        return {bytes.begin(), bytes.end()};
    }
    void value(qel_flist_t* into, uint32_t field, int depth)
    {
        if (std::find(all_fields.begin(), all_fields.end(), field) == all_fields.end())
            throw wire_error("unknown field number");
        switch (QEL_FLD_TYPE(field)) {
        case QEL_TYPE_INT:
            return set_int(into, field, static_cast<int32_t>(number(4)));
        case QEL_TYPE_STR:
            return set_text(into, field, text());
        case QEL_TYPE_XOID: {
            const auto db = static_cast<int64_t>(number(8));
            const auto id = static_cast<int64_t>(number(8));
            return set_object(into, field, {db, id, text()});
        }
        default:
            return array(into, field, depth);
        }
    }
    // Two bytes make an element here, a few hundred in memory: hence a limit over the whole message.
    void array(qel_flist_t* into, uint32_t field, int depth)
    {
        if (!elements(into, field).empty())
            throw wire_error("array field given twice");
        const uint64_t count = number(4);
        if (count > elements_left_)
            throw wire_error("too many elements");
        elements_left_ -= count;
        for (uint64_t i = 0; i < count; ++i) {
            list_ptr element = make_list();
            list(element.get(), depth + 1);
            add_element(into, field, std::move(element));
        }
    }

    std::span<const uint8_t> left_;
    uint64_t elements_left_ = max_elements;
};

} // namespace

std::vector<uint8_t> encode_frame(qel_flist_t* list)
{
    std::vector<uint8_t> frame(magic.begin(), magic.end());
    writer out{frame};
    out.number(0, 4);
    out.list(list, 0);
    const size_t body_bytes = frame.size() - frame_header_bytes;
    for (size_t i = 0; i < 4; ++i)
        frame[magic.size() + i] = static_cast<uint8_t>(body_bytes >> (8 * i));
    return frame;
}

size_t body_length(std::span<const uint8_t, frame_header_bytes> header)
{
    if (!std::equal(magic.begin(), magic.end(), header.begin()))
        throw wire_error("not a catalogue message");
    size_t bytes = 0;
    for (size_t i = 0; i < 4; ++i)
        bytes |= static_cast<size_t>(header[magic.size() + i]) << (8 * i);
    if (bytes > max_body_bytes)
        throw wire_error("message too large");
    return bytes;
}

list_ptr decode_body(std::span<const uint8_t> body)
{
    reader in{body};
    list_ptr list = make_list();
    in.list(list.get(), 0);
    if (!in.at_end())
        throw wire_error("bytes after the end of the message");
    return list;
}

} // namespace catalog
