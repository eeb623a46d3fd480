#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "meta/FrozenRecord.h"
#include "meta/Meta.h"
#include "tests/meta/support.h"

namespace vorrim {
namespace {

using test::Bytes;
using test::operator+;
using test::hex;

const Bytes kFixed = test::kCountingHash + hex("05 00 00 00 36 12");

Bytes record_of(std::uint32_t count, const Bytes& tags) {
    Bytes bytes = kFixed + hex("00 00 00 00");
    store_32(&bytes[RecordLayout::tag_count], count);
    return bytes + tags;
}

FrozenRecord freeze(const Bytes& bytes) {
    kx_memory_file stream = test::stream_of(bytes);
    return FrozenRecord::from_network(stream);
}

Bytes frozen_bytes(const FrozenRecord& record) {
    return test::copy_of(record.bytes());
}

// The two decoders of a record held against each other over damaged bytes. VORRIM_SEED repeats a
// run, VORRIM_ROUNDS makes it longer.
class Decoders : public testing::Test {
protected:
    Decoders() : random_(seed()) {}

    static std::uint64_t number(const char* name, std::uint64_t otherwise) {
        const char* const text = std::getenv(name);
        return text != nullptr ? std::strtoull(text, nullptr, 10) : otherwise;
    }
    static std::uint64_t seed() {
        static const std::uint64_t value = number("VORRIM_SEED", std::random_device{}());
        return value;
    }
    static std::uint64_t rounds() { return number("VORRIM_ROUNDS", 20'000); }

    std::size_t below(std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_);
    }
    std::byte any_byte() {
        // The bytes that mean something more often than others.
        constexpr std::string_view kTelling("\x00\x01\x02\x03\x04n\x15\xFF\xFE\x80", 10);
        return below(2) == 0 ? static_cast<std::byte>(kTelling[below(kTelling.size())])
                             : static_cast<std::byte>(below(256));
    }

    Bytes any_string() {
        Bytes text(below(below(20) == 0 ? 300 : 6));
        for (std::byte& byte : text)
            byte = any_byte();
        Bytes count = hex("00 00");
        store_16(count.data(), static_cast<std::uint16_t>(text.size()));
        return count + text;
    }

    Bytes any_tag() {
        const std::size_t type = 1 + below(3);
        Bytes tag = Bytes{static_cast<std::byte>(type)} + any_string();
        if (type == TagType::text) return tag + any_string();
        Bytes value(type == TagType::hash ? kHashSize : RecordLayout::integer_size);
        for (std::byte& byte : value)
            byte = any_byte();
        return tag + value;
    }

    Bytes any_record() {
        Bytes tags;
        const std::size_t count = below(6);
        for (std::size_t i = 0; i < count; ++i)
            tags = tags + any_tag();
        return record_of(static_cast<std::uint32_t>(count), tags);
    }

    void damage(Bytes& bytes) {
        for (std::size_t times = below(4); times > 0 && !bytes.empty(); --times) {
            const std::size_t place = below(bytes.size());
            const auto at = bytes.begin() + static_cast<std::ptrdiff_t>(place);
            switch (below(5)) {
                case 0:
                    bytes.resize(place);
                    break;
                case 1:
                    bytes.erase(at);
                    break;
                case 2:
                    bytes.insert(at, any_byte());
                    break;
                case 3:
                    *at ^= static_cast<std::byte>(1U << below(8));
                    break;
                default:
                    *at = any_byte();
                    break;
            }
        }
    }

    static std::string repeat_with(std::uint64_t round, const Bytes& bytes) {
        return "VORRIM_SEED=" + std::to_string(seed()) + ", round " + std::to_string(round) + ": " +
               test::to_hex(bytes);
    }

    std::mt19937_64 random_;
};

// True when both accepted the bytes.
bool agree_on_record(const Bytes& bytes, std::uint32_t sources, test::RecordedOutput& output) {
    Meta meta;
    kx_memory_file for_meta = test::stream_of(bytes);
    const bool meta_accepts = meta.fromNetwork(for_meta);
    const std::string meta_says = output.take();
    kx_memory_file for_frozen = test::stream_of(bytes);
    FrozenRecord frozen = FrozenRecord::from_network(for_frozen);
    EXPECT_EQ(output.take(), meta_says);
    EXPECT_EQ(frozen.empty(), !meta_accepts);
    if (frozen.empty() || !meta_accepts) return false;
    EXPECT_EQ(for_frozen.tell(), for_meta.tell());
    EXPECT_EQ(frozen_bytes(frozen), test::network_form(meta));
    EXPECT_EQ(frozen_bytes(freeze(frozen_bytes(frozen))), frozen_bytes(frozen));

    // What the view shows is what the Meta holds.
    std::size_t i = 0;
    for (const TagView& seen : frozen.view().tags()) {
        if (i == meta.tags().size()) break;
        const MetaTag& tag = *meta.tags()[i++];
        EXPECT_EQ(seen.type, tag.type());
        EXPECT_EQ(seen.named, !tag.name().null());
        if (!seen.named) continue;
        EXPECT_EQ(seen.name, tag.name().view());
        EXPECT_EQ(frozen.view().int_tag(seen.name), meta.getIntTag(seen.name));
    }
    EXPECT_EQ(i, meta.tags().size());
    EXPECT_EQ(frozen.view().tag_count(), i);

    frozen.set_availability(sources);
    meta.setTagById(TagId::Availability, sources);
    EXPECT_EQ(frozen_bytes(frozen), test::network_form(meta));
    return true;
}

TEST_F(Decoders, OfARecordAgreeOnEveryDamage) {
    test::RecordedOutput output;
    std::uint64_t accepted = 0;
    for (std::uint64_t round = 0; round < rounds(); ++round) {
        Bytes bytes = any_record();
        damage(bytes);
        if (agree_on_record(bytes, static_cast<std::uint32_t>(random_()), output)) ++accepted;
        ASSERT_FALSE(HasFailure()) << repeat_with(round, bytes);
    }
    // The test is worth nothing if the damage leaves all or none of the records readable.
    EXPECT_GT(accepted, rounds() / 10) << repeat_with(0, {});
    EXPECT_LT(accepted, rounds() - rounds() / 10) << repeat_with(0, {});
}

}  // namespace
}  // namespace vorrim
