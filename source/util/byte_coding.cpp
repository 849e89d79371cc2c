#include "ostrum_util.h"
#include "util/resources.h"

#include <array>

using ostrum::heap_ptr;

namespace {

constexpr char base16_alphabet[] = "0123456789abcdef";
constexpr char base64_alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Values of the base64 digits; "=" and all that is no digit count as 0.
constexpr std::array<uint8_t, 256> make_base64_values()
{
    std::array<uint8_t, 256> values{};
    for (uint8_t value = 0; value < 64; ++value) {
        values[static_cast<uint8_t>(base64_alphabet[value])] = value;
    }
    return values;
}
constexpr std::array<uint8_t, 256> base64_values = make_base64_values();

void report_length(size_t* out_len, size_t length)
{
    if (out_len != nullptr) {
        *out_len = length;
    }
}

// What a base16 digit stands for; any other character repeats the value before it.
uint8_t base16_value(char digit, uint8_t before)
{
    if (digit >= '0' && digit <= '9') {
        return static_cast<uint8_t>(digit - '0');
    }
    return digit >= 'a' && digit <= 'f' ? static_cast<uint8_t>(digit - 'a' + 10) : before;
}

// Up to three bytes as four characters.
void encode_group(const uint8_t* bytes, size_t count, char* out)
{
    const uint32_t bits = static_cast<uint32_t>(bytes[0]) << 16 |
                          (count > 1 ? static_cast<uint32_t>(bytes[1]) << 8 : 0U) |
                          (count > 2 ? static_cast<uint32_t>(bytes[2]) : 0U);
    out[0] = base64_alphabet[bits >> 18 & 63];
    out[1] = base64_alphabet[bits >> 12 & 63];
    out[2] = count > 1 ? base64_alphabet[bits >> 6 & 63] : '=';
    out[3] = count > 2 ? base64_alphabet[bits & 63] : '=';
}

// Four characters as up to three bytes.
void decode_group(const char* text, uint8_t* out, size_t count)
{
    uint32_t bits = 0;
    for (int i = 0; i < 4; ++i) {
        bits = bits << 6 | base64_values[static_cast<uint8_t>(text[i])];
    }
    for (size_t i = 0; i < count; ++i) {
        out[i] = static_cast<uint8_t>(bits >> (16 - 8 * i));
    }
}

size_t base64_decoded_bytes(const char* text, size_t len)
{
    if (len == 0) {
        return 0;
    }
    return len / 4 * 3 - (text[len - 1] == '=' ? 1 : 0) - (text[len - 2] == '=' ? 1 : 0);
}

} // namespace

char* base16_encode(const void* bytes, size_t len, size_t* out_len)
{
    const auto* from = static_cast<const uint8_t*>(bytes);
    const size_t in_bytes = from != nullptr ? len : 0;
    if (in_bytes > SIZE_MAX / 2) {
        return nullptr;
    }
    heap_ptr<char> text = ostrum::heap_zeroed<char>(in_bytes * 2);
    if (!text) {
        return nullptr;
    }
    for (size_t i = 0; i < in_bytes; ++i) {
        text.get()[2 * i] = base16_alphabet[from[i] >> 4];
        text.get()[2 * i + 1] = base16_alphabet[from[i] & 15];
    }
    report_length(out_len, in_bytes * 2);
    return text.release();
}

void* base16_decode(const char* text, size_t len, size_t* out_len)
{
    const size_t in_bytes = text != nullptr ? len : 0;
    if (in_bytes % 2 != 0) {
        return nullptr;
    }
    heap_ptr<uint8_t> bytes = ostrum::heap_zeroed<uint8_t>(in_bytes / 2);
    if (!bytes) {
        return nullptr;
    }
    uint8_t before = 0;
    for (size_t i = 0; i < in_bytes / 2; ++i) {
        const uint8_t high = base16_value(text[2 * i], before);
        before = base16_value(text[2 * i + 1], high);
        bytes.get()[i] = static_cast<uint8_t>(high << 4 | before);
    }
    report_length(out_len, in_bytes / 2);
    return bytes.release();
}

char* base64_encode(const void* bytes, size_t len, size_t* out_len)
{
    const auto* from = static_cast<const uint8_t*>(bytes);
    const size_t in_bytes = from != nullptr ? len : 0;
    if (in_bytes > SIZE_MAX / 2) {
        return nullptr;
    }
    const size_t groups = (in_bytes + 2) / 3;
    heap_ptr<char> text = ostrum::heap_zeroed<char>(groups * 4);
    if (!text) {
        return nullptr;
    }
    for (size_t i = 0; i < groups; ++i) {
        encode_group(from + 3 * i, in_bytes - 3 * i, text.get() + 4 * i);
    }
    report_length(out_len, groups * 4);
    return text.release();
}

void* base64_decode(const char* text, size_t len, size_t* out_len)
{
    const size_t in_bytes = text != nullptr ? len : 0;
    if (in_bytes % 4 != 0) {
        return nullptr;
    }
    const size_t out_bytes = base64_decoded_bytes(text, in_bytes);
    heap_ptr<uint8_t> bytes = ostrum::heap_zeroed<uint8_t>(out_bytes);
    if (!bytes) {
        return nullptr;
    }
    for (size_t i = 0; i < in_bytes / 4; ++i) {
        const size_t left = out_bytes - 3 * i;
        decode_group(text + 4 * i, bytes.get() + 3 * i, left < 3 ? left : 3);
    }
    report_length(out_len, out_bytes);
    return bytes.release();
}
