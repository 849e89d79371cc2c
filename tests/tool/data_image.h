#ifndef OSTRUM_TESTS_TOOL_DATA_IMAGE_H
#define OSTRUM_TESTS_TOOL_DATA_IMAGE_H
// Data files made by hand from the published offsets.
#include <cstdint>
#include <string>

namespace tool_test {

class image_builder {
public:
    image_builder() : bytes_(5'800'544, '\0') { text(0, "ostrum-64bit\n"); }
    image_builder& word(size_t offset, uint64_t value)
    {
        bytes_.replace(offset, sizeof value, reinterpret_cast<const char*>(&value), sizeof value);
        return *this;
    }
    image_builder& text(size_t offset, const std::string& value)
    {
        bytes_.replace(offset, value.size(), value);
        return *this;
    }

    // The next entry of a table; what is not given is 0.
    image_builder& counter(const std::string& name, uint64_t opcode, uint64_t line, uint64_t calls,
                           uint64_t total_ns, const std::string& program = "dm")
    {
        const size_t at = 368 + 656 * counters_++;
        text(at + 64, name).text(at + 192, program).text(at + 320, "a.c").text(at + 448, "/part");
        word(at + 576, opcode).word(at + 592, line).word(at + 608, calls).word(at + 624, total_ns);
        return word(2'687'344, counters_);
    }
    image_builder& error(uint64_t errnum, const std::string& name, uint64_t count)
    {
        const size_t at = 3'309'960 + 304 * errors_++;
        text(at + 16, name).text(at + 144, "dm").word(at + 288, errnum).word(at + 296, count);
        return word(5'800'328, errors_);
    }
    image_builder& variable(const std::string& name, const std::string& value)
    {
        const size_t at = 2'687'352 + 1216 * variables_++;
        text(at + 64, name).text(at + 192, value);
        return word(3'309'944, variables_);
    }
    image_builder& metric(size_t place, uint64_t value) { return word(5'800'336 + 8 * place, value); }

    // The header's locks and those of counters, as hosts set them up: mutexes that processes share.
    image_builder& locks()
    {
        constexpr size_t kind = 32; // in a slot
        for (size_t slot = 0; slot < 5; ++slot) {
            word(32 + slot * 64 + kind, 128);
        }
        for (size_t entry = 0; entry < counters_; ++entry) {
            word(368 + 656 * entry + kind, 128);
        }
        return *this;
    }

    [[nodiscard]] const std::string& bytes() const { return bytes_; }

private:
    std::string bytes_;
    size_t counters_ = 0, errors_ = 0, variables_ = 0;
};

// A file in which everything is there, with names that want to break out.
inline image_builder full_sample()
{
    image_builder image;
    image.word(352, 4711).word(3'309'952, 1'795'256'941'000'000'005);
    image.counter("sea\"rch\\", 7, 12, 4, 2'000'000'001).counter("sea\"rch\\", 7, 13, 3, 1);
    image.counter("\x01\n\xFF", 0, 1, ~0ULL, ~0ULL).counter("\x01\n\xFF", 0, 1, 1, 1, "");
    image.error(37, "search", 5).error(38, "", 1);
    image.variable("time_on", "3")
        .variable("text", "a,\"b\"")
        .variable("odd", "inf")
        .variable("time_on", "4");
    for (size_t place = 0; place < 26; ++place) {
        image.metric(place, place + 1);
    }
    return image;
}

} // namespace tool_test
#endif
