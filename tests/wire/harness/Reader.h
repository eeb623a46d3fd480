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
    explicit Reader(Bytes bytes) : bytes_(std::move(bytes)) {}

    [[nodiscard]] std::uint32_t u8();
    [[nodiscard]] std::uint32_t u16();
    [[nodiscard]] std::uint32_t u32();
    [[nodiscard]] std::string text();
    [[nodiscard]] Hash hash();
    [[nodiscard]] Record record();
    [[nodiscard]] std::vector<Record> records();  // u32 count first

    void expect_u8(std::uint32_t wanted, std::string_view what);
    void expect_end() const;

private:
    std::string take(std::size_t count);

    Bytes bytes_;
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

// Whole payloads, opcode included; a datagram's begins behind its marker.
[[nodiscard]] Results read_results(const Bytes& payload);                         // 33
[[nodiscard]] std::vector<Record> read_users(const Bytes& payload);               // 43
[[nodiscard]] std::vector<Source> read_sources(const Bytes& payload, const Hash&  // 42 or 9B
                                                                         asked);

// What most search tests compare: the names of the records, in order.
using Names = std::vector<std::string>;
[[nodiscard]] Names names(const std::vector<Record>& records);

}  // namespace vorrim::wire
