// The sample server's parts that stand alone: the package database reader, messages, and the store.
#include <random>
#include <sstream>

#include <gtest/gtest.h>

#include "catalog_store.h"
#include "dpkg_status.h"
#include "fields.h"
#include "host_abi/host_fields.h"
#include "support/temp_dir.h"
#include "wire.h"

using namespace catalog;
using namespace std::string_literals;

namespace {

static_assert(fld_object == ostrum::xoid_field && fld_results == ostrum::results_field &&
              fld_search == ostrum::search_text_field && fld_template == ostrum::search_template_field);

std::span<const uint8_t> body_of(const std::vector<uint8_t>& frame)
{
    return std::span(frame).subspan(frame_header_bytes);
}

std::span<const uint8_t> bytes_of(const std::string& text)
{
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

// Every type that travels, with nesting.
list_ptr sample_list()
{
    list_ptr list = make_request(op_batch, 77);
    set_text(list.get(), fld_name, "caf\xc3\xa9");
    set_text(list.get(), fld_summary, "");
    set_int(list.get(), fld_limit, -5);
    for (int i = 0; i < 2; ++i) {
        list_ptr part = make_request(op_create);
        set_text(add_element(part.get(), fld_provides), fld_name, "other-name-" + std::to_string(i));
        add_element(list.get(), fld_requests, std::move(part));
    }
    return list;
}

package_record named(const std::string& name)
{
    package_record record;
    record.name = name;
    record.section = "admin";
    return record;
}

} // namespace

TEST(DpkgStatus, ReadsInstalledPackagesAndPassesOverTheRest)
{
    std::istringstream in(
        "not a field\n"
        "Package: one\r\nStatus: install ok installed\r\nVersion: 1:2.0-1\r\nInstalled-Size: 12\r\n"
        "Pre-Depends: a (>= 1) | b [amd64]\r\nDepends: c:any,\r\n d (<< 2)\r\n"
        "Provides: x (= 1), y\r\nDescription: first: line\r\n more\r\n .\r\n \r\n\r\n"
        "Package: gone\nStatus: deinstall ok config-files\n\n"
        "Package: half\nStatus: install ok not-installed\n\n\n"
        "Status: install ok installed\n\n"
        "Package: two\nStatus: install ok installed\nInstalled-Size: -4\nSuggests: , |\n:\n");
    const std::vector<package_record> records = read_dpkg_status(in);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].name, "one");
    EXPECT_EQ(records[0].version, "1:2.0-1");
    EXPECT_EQ(records[0].summary, "first: line");
    EXPECT_EQ(records[0].installed_kib, 12);
    EXPECT_EQ(records[0].provides, (std::vector{"x"s, "y"s}));
    ASSERT_EQ(records[0].requirements.size(), 3u);
    EXPECT_EQ(records[0].requirements[0].kind, "Pre-Depends");
    EXPECT_EQ(records[0].requirements[0].alternatives, (std::vector{"a"s, "b"s}));
    EXPECT_EQ(records[0].requirements[2].alternatives, std::vector{"d"s}); // from the continued line
    EXPECT_EQ(records[1].installed_kib, 0);
    EXPECT_TRUE(records[1].requirements.empty());
}

TEST(Wire, CarriesEveryTypeThereAndBack)
{
    const std::vector<uint8_t> frame = encode_frame(sample_list().get());
    ASSERT_EQ(body_length(std::span<const uint8_t, frame_header_bytes>(frame.data(), frame_header_bytes)),
              frame.size() - frame_header_bytes);
    const list_ptr list = decode_body(body_of(frame));
    EXPECT_EQ(get_text(list.get(), fld_name), "caf\xc3\xa9");
    EXPECT_EQ(get_text(list.get(), fld_summary), "");
    EXPECT_EQ(get_text(list.get(), fld_version), std::nullopt);
    EXPECT_EQ(get_int(list.get(), fld_limit), -5);
    const std::optional<object_id> object = get_object(list.get(), fld_object);
    ASSERT_TRUE(object);
    EXPECT_EQ(object->db, database_number);
    EXPECT_EQ(object->id, 77);
    EXPECT_EQ(object->type, package_type);
    ASSERT_EQ(elements(list.get(), fld_requests).size(), 2u);
    qel_flist_t* provided = elements(elements(list.get(), fld_requests)[1], fld_provides).at(0);
    EXPECT_EQ(get_text(provided, fld_name), "other-name-1");
    for (size_t length = 0; length < body_of(frame).size(); ++length) {
        EXPECT_THROW(decode_body(body_of(frame).first(length)), wire_error) << "cut to " << length;
    }
}

TEST(Wire, RefusesWhatIsNoMessage)
{
    const std::pair<const char*, std::string> cases[] = {
        {"nothing at all", ""},
        {"fewer fields than said", "\x02\0"s},
        {"a field of no dictionary", "\x01\0\x01\x02\x03\x04"s},
        {"a text longer than the message", "\x01\0\x1a\x27\0\x05\xff\xff\xff\xff"s},
        {"a zero byte in a text", "\x01\0\x1a\x27\0\x05\x02\0\0\0a\0"s},
        {"more elements than may be", "\x01\0\x33\0\0\x09\xff\xff\xff\xff"s},
        {"an array given twice", "\x02\0\x33\0\0\x09\x01\0\0\0\0\0\x33\0\0\x09\x01\0\0\0\0\0"s},
        {"bytes after the end", "\0\0z"s},
    };
    for (const auto& [what, body] : cases) {
        SCOPED_TRACE(what);
        EXPECT_THROW(decode_body(bytes_of(body)), wire_error);
    }
    std::string nested = "\0\0"s;
    for (int depth = 0; depth <= max_nesting; ++depth)
        nested.insert(0, "\x01\0\x33\0\0\x09\x01\0\0\0"s);
    EXPECT_THROW(decode_body(bytes_of(nested)), wire_error);
    for (const std::string& header : {"CAT2\0\0\0\0"s, "CAT1\x01\0\x40\0"s}) {
        const auto bytes = bytes_of(header);
        EXPECT_THROW(body_length(bytes.first<frame_header_bytes>()), wire_error);
    }
}

// One bit: it is refused, or is a message still and encodes again.
TEST(Wire, SurvivesDamagedBits)
{
    const std::vector<uint8_t> frame = encode_frame(sample_list().get());
    std::mt19937 random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same damage every time
    int refused = 0;
    for (int round = 0; round < 2000; ++round) {
        std::vector<uint8_t> damaged(body_of(frame).begin(), body_of(frame).end());
        damaged[random() % damaged.size()] ^= static_cast<uint8_t>(1u << (random() % 8));
        try {
            const list_ptr list = decode_body(damaged);
            EXPECT_GT(encode_frame(list.get()).size(), frame_header_bytes);
        } catch (const wire_error&) {
            ++refused;
        }
    }
    EXPECT_GT(refused, 500);
}

TEST(CatalogStore, FindsByNameByProvidedNameAndBySearch)
{
    const temp_dir dir;
    catalog_store store(dir.file("catalog.db"));
    const int64_t first = store.insert_package(named("first"));
    const int64_t second = store.insert_package(named("second"));
    store.insert_provided_name(second, "alias");
    store.insert_dependency(first, second, "Depends");
    EXPECT_EQ(store.find_id("second"), second);
    EXPECT_EQ(store.find_id("alias"), std::nullopt);
    EXPECT_EQ(store.find_provider("alias"), second);
    EXPECT_EQ(store.search(search_by::name, "*s*", 10), (std::vector{first, second}));
    EXPECT_EQ(store.search(search_by::section, "admin", 1), std::vector{first});
    EXPECT_EQ(store.search(search_by::requires_package, "second", 10), std::vector{first});
    EXPECT_EQ(store.count_dependents(second), 1);
    EXPECT_EQ(store.load_dependencies(first).at(0).name, "second");
    EXPECT_THROW(store.insert_package(named("first")), store_error);
    store.delete_package(first);
    EXPECT_EQ(store.count_dependents(second), 0) << "dependencies go with the package";
}

TEST(CatalogStore, UndoesWhatIsNotCommitted)
{
    const temp_dir dir;
    catalog_store store(dir.file("catalog.db"));
    {
        store_transaction outer(store, store_transaction::kind::write);
        store.insert_package(named("kept"));
        {
            const store_transaction inner(store, store_transaction::kind::savepoint);
            store.insert_package(named("undone"));
        }
        outer.commit();
    }
    {
        const store_transaction forgotten(store, store_transaction::kind::write);
        store.delete_package(*store.find_id("kept"));
    }
    catalog_store another(dir.file("catalog.db"));
    EXPECT_TRUE(another.find_id("kept"));
    EXPECT_FALSE(another.find_id("undone"));
    EXPECT_THROW(catalog_store(dir.path()), store_error) << "a directory is no database";
}
