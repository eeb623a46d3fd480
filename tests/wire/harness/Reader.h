#pragma once
// Reads a reply field by field. A field that is not there ends the test.

#include <cstdint>
#include <string>
#include <vector>

#include "tests/wire/harness/Bytes.h"
#include "tests/wire/harness/Wire.h"

namespace vorrim::wire {

class Reader final {
public:
    explicit Reader(const Bytes& bytes) : bytes_(bytes.string()) {}
    // Behind an opcode, which must be this one.
    Reader(const Bytes& bytes, std::uint32_t opcode) : Reader(bytes) {
        if (const std::uint32_t found = u8(); found != opcode)
            throw WireFailure("the opcode is " + std::to_string(found) + ", not " +
                              std::to_string(opcode));
    }

    [[nodiscard]] std::uint32_t u8() { return static_cast<std::uint8_t>(take(1)[0]); }
    [[nodiscard]] std::uint32_t u16() {
        const std::uint32_t low = u8();
        return low | u8() << 8U;
    }
    [[nodiscard]] std::uint32_t u32() {
        const std::uint32_t low = u16();
        return low | u16() << 16U;
    }
    [[nodiscard]] std::string text() { return take(u16()); }
    [[nodiscard]] Hash hash() {
        Hash hash;
        std::ranges::copy(take(hash.bytes.size()), hash.bytes.begin());
        return hash;
    }
    [[nodiscard]] Tag tag() {
        Tag tag{static_cast<std::uint8_t>(u8()), text(), {}, 0, {}};
        if (tag.type == 1)
            tag.hash = hash();
        else if (tag.type == 2)
            tag.text = text();
        else if (tag.type == 3)
            tag.number = u32();
        else
            throw WireFailure("a reply holds a tag of type " + std::to_string(tag.type));
        return tag;
    }
    [[nodiscard]] Record record() {
        Record record{hash(), u32(), static_cast<std::uint16_t>(u16()), {}};
        for (std::uint32_t left = u32(); left > 0; --left)
            record.tags.push_back(tag());
        return record;
    }
    [[nodiscard]] std::vector<Record> records() {  // u32 count first
        std::vector<Record> records;
        for (std::uint32_t left = u32(); left > 0; --left)
            records.push_back(record());
        return records;
    }

    void expect_end() const {
        if (position_ != bytes_.size())
            throw WireFailure("a reply goes on after byte " + std::to_string(position_));
    }

private:
    std::string take(std::size_t count) {
        if (bytes_.size() - position_ < count) throw WireFailure("a reply ends too early");
        position_ += count;
        return bytes_.substr(position_ - count, count);
    }

    std::string bytes_;
    std::size_t position_ = 0;
};

struct Source {
    std::uint32_t id = 0;
    std::uint16_t port = 0;
    bool operator==(const Source&) const = default;
};

struct Results {
    std::vector<Record> records;
    bool more = false;
};

// Whole payloads, opcode included.
template <class Read>
[[nodiscard]] auto read_whole(const Bytes& payload, std::uint32_t opcode, Read read) {
    Reader reader(payload, opcode);
    auto value = read(reader);
    reader.expect_end();
    return value;
}
[[nodiscard]] inline Results read_results(const Bytes& payload) {
    return read_whole(payload, 0x33, [](Reader& reader) {
        Results results{reader.records()};
        const std::uint32_t more = reader.u8();
        if (more > 1) throw WireFailure("more is neither 0 nor 1");
        results.more = more == 1;
        return results;
    });
}
[[nodiscard]] inline std::vector<Record> read_users(const Bytes& payload) {
    return read_whole(payload, 0x43, [](Reader& reader) { return reader.records(); });
}
[[nodiscard]] inline std::vector<Source> read_sources(const Bytes& payload, const Hash& asked,
                                                      std::uint32_t opcode = 0x42) {
    return read_whole(payload, opcode, [&](Reader& reader) {
        if (reader.hash() != asked) throw WireFailure("sources come for another hash");
        std::vector<Source> sources;
        for (std::uint32_t left = reader.u8(); left > 0; --left)
            sources.push_back({reader.u32(), static_cast<std::uint16_t>(reader.u16())});
        return sources;
    });
}

// What most search tests compare: the names of the records, in order.
using Names = std::vector<std::string>;
[[nodiscard]] inline Names names(const std::vector<Record>& records) {
    Names names;
    for (const Record& record : records)
        names.push_back(record.text(kName));
    return names;
}

}  // namespace vorrim::wire
