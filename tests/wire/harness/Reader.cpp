#include "tests/wire/harness/Reader.h"

#include <algorithm>

namespace vorrim::wire {

std::string Reader::take(std::size_t count) {
    if (bytes_.size() - position_ < count)
        throw WireFailure("a reply of " + std::to_string(bytes_.size()) + " bytes ends before " +
                          std::to_string(position_ + count));
    std::string taken;
    for (std::size_t i = 0; i < count; ++i)
        taken += static_cast<char>(bytes_[position_++]);
    return taken;
}

std::uint32_t Reader::u8() {
    return static_cast<std::uint8_t>(take(1)[0]);
}

std::uint32_t Reader::u16() {
    const std::uint32_t low = u8();
    return low | u8() << 8U;
}

std::uint32_t Reader::u32() {
    const std::uint32_t low = u16();
    return low | u16() << 16U;
}

std::string Reader::text() {
    return take(u16());
}

Hash Reader::hash() {
    Hash hash;
    std::ranges::copy(take(hash.bytes.size()), hash.bytes.begin());
    return hash;
}

Record Reader::record() {
    Record record;
    record.hash = hash();
    record.id = u32();
    record.port = static_cast<std::uint16_t>(u16());
    const std::uint32_t count = u32();
    for (std::uint32_t i = 0; i < count; ++i) {
        Tag tag;
        tag.type = static_cast<std::uint8_t>(u8());
        tag.name = text();
        if (tag.type == 1)
            tag.hash = hash();
        else if (tag.type == 2)
            tag.text = text();
        else if (tag.type == 3)
            tag.number = u32();
        else
            throw WireFailure("a reply holds a tag of type " + std::to_string(tag.type));
        record.tags.push_back(tag);
    }
    return record;
}

std::vector<Record> Reader::records() {
    std::vector<Record> records;
    const std::uint32_t count = u32();
    for (std::uint32_t i = 0; i < count; ++i)
        records.push_back(record());
    return records;
}

void Reader::expect_u8(std::uint32_t wanted, std::string_view what) {
    const std::uint32_t found = u8();
    if (found != wanted)
        throw WireFailure(std::string(what) + " is " + std::to_string(found) + ", not " +
                          std::to_string(wanted));
}

void Reader::expect_end() const {
    if (position_ != bytes_.size())
        throw WireFailure("a reply goes on after byte " + std::to_string(position_) + " of " +
                          std::to_string(bytes_.size()));
}

Results read_results(const Bytes& payload) {
    Reader reader(payload);
    reader.expect_u8(0x33, "the opcode");
    Results results;
    results.records = reader.records();
    const std::uint32_t more = reader.u8();
    if (more > 1) throw WireFailure("more is neither 0 nor 1");
    results.more = more == 1;
    reader.expect_end();
    return results;
}

std::vector<Record> read_users(const Bytes& payload) {
    Reader reader(payload);
    reader.expect_u8(0x43, "the opcode");
    std::vector<Record> records = reader.records();
    reader.expect_end();
    return records;
}

std::vector<Source> read_sources(const Bytes& payload, const Hash& asked) {
    Reader reader(payload);
    const std::uint32_t opcode = reader.u8();
    if (opcode != 0x42 && opcode != 0x9B)
        throw WireFailure("sources come under opcode " + std::to_string(opcode));
    if (reader.hash() != asked) throw WireFailure("sources come for another hash");
    std::vector<Source> sources;
    const std::uint32_t count = reader.u8();
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t id = reader.u32();
        sources.push_back(Source{id, static_cast<std::uint16_t>(reader.u16())});
    }
    reader.expect_end();
    return sources;
}

Names names(const std::vector<Record>& records) {
    std::vector<std::string> names;
    for (const Record& record : records)
        names.push_back(record.text(kName));
    return names;
}

}  // namespace vorrim::wire
