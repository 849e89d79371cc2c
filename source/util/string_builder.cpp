#include "ostrum_util.h"
#include "util/resources.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace os = ostrum::os;

struct string_builder {
    int32_t step;     // capacity grows to multiples of it
    int32_t capacity; // bytes of data
    int32_t used;     // without the terminator
    char* data;       // owned; null after it was taken or lost
};

namespace {

constexpr int32_t default_step = 4096;
constexpr size_t scratch_bytes = 2048;

int32_t lose_content(string_builder& builder)
{
    os::release(builder.data);
    builder.data = nullptr;
    builder.capacity = 0;
    builder.used = 0;
    return -1;
}

// Room for count more bytes and a terminator.
int32_t grow(string_builder& builder, int64_t count)
{
    if (builder.capacity - builder.used > count) {
        return 0;
    }
    const int64_t wanted = (builder.used + count + 1) / builder.step + 1;
    int32_t capacity = 0;
    if (__builtin_mul_overflow(wanted, builder.step, &capacity)) {
        return -1;
    }
    char* grown = static_cast<char*>(os::reallocate(builder.data, static_cast<size_t>(capacity)));
    if (grown == nullptr) {
        return lose_content(builder);
    }
    builder.data = grown;
    builder.capacity = capacity;
    return 0;
}

int32_t append(string_builder* builder, const void* bytes, size_t count)
{
    if (builder == nullptr) {
        return -1;
    }
    if (count > INT32_MAX) {
        return -1;
    }
    if (grow(*builder, static_cast<int64_t>(count)) != 0) {
        return -1;
    }
    if (count > 0) {
        memcpy(builder->data + builder->used, bytes, count);
    }
    builder->used += static_cast<int32_t>(count);
    builder->data[builder->used] = '\0';
    return 0;
}

} // namespace

string_builder* string_builder_create(int32_t step)
{
    auto builder = ostrum::heap_zeroed<string_builder>();
    if (!builder) {
        return nullptr;
    }
    builder->step = step < 1 ? default_step : step;
    builder->capacity = builder->step;
    builder->data = ostrum::heap_zeroed<char>(static_cast<size_t>(builder->capacity)).release();
    return builder->data != nullptr ? builder.release() : nullptr;
}

int32_t string_builder_add_str(string_builder* builder, const char* text)
{
    return append(builder, text, text != nullptr ? strlen(text) : 0);
}

int32_t string_builder_add_strfmt(string_builder* builder, const char* format, ...)
{
    char scratch[scratch_bytes] = "";
    if (format != nullptr) {
        va_list arguments;
        va_start(arguments, format);
        vsnprintf(scratch, sizeof(scratch), format, arguments);
        va_end(arguments);
    }
    return append(builder, scratch, strlen(scratch));
}

int32_t string_builder_add_data(string_builder* builder, const void* bytes, int32_t count)
{
    if (count < 0) {
        return -1;
    }
    return append(builder, bytes, bytes != nullptr ? static_cast<size_t>(count) : 0);
}

char* string_builder_data(const string_builder* builder)
{
    return builder != nullptr ? builder->data : nullptr;
}

int32_t string_builder_used(const string_builder* builder)
{
    return builder != nullptr ? builder->used : 0;
}

void string_builder_reset(string_builder* builder, int32_t keep_from)
{
    if (builder == nullptr || builder->data == nullptr) {
        return;
    }
    if (keep_from <= 0 || keep_from >= builder->used) {
        builder->used = 0;
        builder->data[0] = '\0';
        return;
    }
    // kept: the length stays, so the bytes behind the moved ones are still content
    std::copy(builder->data + keep_from, builder->data + builder->used, builder->data);
}

char* string_builder_take_data(string_builder* builder)
{
    if (builder == nullptr) {
        return nullptr;
    }
    builder->capacity = 0;
    builder->used = 0;
    return std::exchange(builder->data, nullptr);
}

void string_builder_destroy(string_builder* builder)
{
    if (builder != nullptr) {
        os::release(builder->data);
        os::release(builder);
    }
}
