// Records in the two forms that leave the program.

#include <gtest/gtest.h>

#include "Failure.h"
#include "FileHasher.h"
#include "Publisher.h"
#include "Records.h"
#include "base/file/primitives.h"
#include "meta/Meta.h"

namespace vorrim::cli {
namespace {

FileHash counting_hash() {
    FileHash hash;
    for (std::size_t i = 0; i < hash.bytes.size(); ++i)
        hash.bytes[i] = static_cast<std::byte>(i);
    return hash;
}

TEST(RecordsTest, OddTagsAreShownAndChangeNothingElse) {
    kx_memory_file out(64);
    write_bytes(out, counting_hash().bytes);
    write_32(out, 0x0100007F);
    write_16(out, 4662);
    write_32(out, 5);
    const auto text = [&](std::string_view name, std::string_view value) {
        write_8(out, TagType::text);
        write_string(name, out);
        write_string(value, out);
    };
    text("\x02", "a size that is a text");
    text("Artist", "abba");
    text("Artist", "not shown");
    text("n", "has no name");
    write_8(out, TagType::hash);
    write_string("\x07", out);
    write_bytes(out, counting_hash().bytes);
    kx_memory_file in = kx_memory_file::reading(out.contents());
    const FrozenRecord record = read_record(in);
    const nlohmann::json json = file_json(record.view());
    EXPECT_EQ(json["size"], nullptr);
    EXPECT_EQ(json["name"], nullptr);
    EXPECT_EQ(json["tags"], nlohmann::json::parse(R"({
        "Size": "a size that is a text", "Artist": "abba",
        "Part Hash": "000102030405060708090a0b0c0d0e0f"})"));
    EXPECT_EQ(json["first_source"], nlohmann::json::parse(R"({
        "id": 16777343, "address": "127.0.0.1", "port": 4662, "reachable": true})"));
}

TEST(RecordsTest, TruncatedAnswersAreFailures) {
    const std::vector<std::byte> endpoints = {std::byte{2}, std::byte{1}, std::byte{0},
                                              std::byte{0}, std::byte{0}, std::byte{9},
                                              std::byte{9}};
    kx_memory_file data = kx_memory_file::reading(endpoints);
    EXPECT_THROW((void)read_endpoints(data), Failure);
    kx_memory_file none = kx_memory_file::reading({});
    EXPECT_THROW((void)read_endpoints(none), Failure);
    EXPECT_THROW((void)read_record(none), Failure);
    EXPECT_THROW((void)read_records(none), Failure);
}

}  // namespace
}  // namespace vorrim::cli
