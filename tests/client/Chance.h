#pragma once
// What runs of random operations are made of: clients, hashes, records, expressions.
//
//     VORRIM_SEED   the seed of the whole run (random, and printed, when not set)
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "tests/client/ExpressionModel.h"
#include "tests/client/Files.h"

namespace vorrim::test {

inline std::uint64_t from_environment(const char* name, std::uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text != nullptr ? std::strtoull(text, nullptr, 0) : otherwise;
}

inline std::uint64_t seed_of_run() {
    static const std::uint64_t seed = from_environment("VORRIM_SEED", std::random_device{}());
    return seed;
}

class Chance {
public:
    Chance(std::uint64_t seed, std::uint32_t distinct, std::uint32_t words)
        : random_(seed), distinct_(distinct) {
        for (std::uint32_t i = 0; i < words; ++i)
            words_.push_back(letters(1 + below(8)));
        words_.push_back("the");
        words_.push_back(std::string(255, 'q'));
        words_.push_back(std::string(300, 'w'));
        words_.push_back("\xe9t\xe9");
    }

    std::uint32_t below(std::size_t bound) { return static_cast<std::uint32_t>(random_() % bound); }
    bool one_in(std::uint32_t n) { return below(n) == 0; }

    std::uint32_t client() {
        static constexpr std::uint32_t kClients[] = {0,        1,          2,          77,
                                                     0xFFFFFE, 0xFFFFFF,   0x1000000,  0x0100007F,
                                                     0x7F,     0xDEADBEEF, 0xFFFFFFFF, 0x80000000};
        return kClients[below(std::size(kClients))];
    }

    // Some differ only behind their first four bytes, which choose the bucket.
    wire::Hash hash() {
        const std::uint32_t number = below(distinct_);
        wire::Hash hash = wire::hash_of(number % 5 == 0 ? number % 10 : number * 2654435761u);
        for (unsigned i = 0; i < 4; ++i)
            hash.bytes[4 + i] = static_cast<std::uint8_t>(number >> (8 * i));
        return hash;
    }

    std::string letters(std::uint32_t count) {
        std::string text;
        for (std::uint32_t i = 0; i < count; ++i)
            text += static_cast<char>('a' + below(5));
        return text;
    }
    // The lower the index, the more frequent.
    std::string word() {
        const std::size_t bound = words_.size();
        std::string text =
            one_in(20) ? letters(1 + below(12)) : words_[std::min(below(bound), below(bound))];
        if (one_in(4) && text[0] >= 'a') text[0] = static_cast<char>(text[0] - 'a' + 'A');
        return text;
    }
    std::string title() {
        static const std::string kBetween = " ,_-.(){}[]!?<>:\\/\t\n";
        std::string text = one_in(10) ? "." : "";
        for (std::uint32_t count = one_in(8) ? below(15) : 1 + below(5); count > 0; --count) {
            text += word();
            text += kBetween[below(kBetween.size())];
            if (one_in(5)) text += ' ';
        }
        return text;
    }
    std::string tag_name() {
        static const std::string kNames[] = {"\x01", "\x02", "\x03", "Artist", "n", "", "\x15"};
        return kNames[one_in(10) ? below(std::size(kNames)) : below(4)];
    }
    wire::Tag tag() {
        const std::uint32_t kind = below(4);
        if (kind == 0) return wire::int_tag(tag_name(), below(6));
        if (kind > 1) return wire::text_tag(tag_name(), one_in(12) ? "" : title());
        if (one_in(6)) return wire::hash_tag(tag_name(), hash());
        return wire::int_tag(wire::kSize, one_in(2) ? ~below(9) : below(9));
    }
    wire::Record record() {
        wire::Record record{hash(), 0, 0, {wire::text_tag(wire::kName, title())}};
        for (std::uint32_t more = below(4); more > 0; --more)
            record.tags.push_back(tag());
        return record;
    }

    // An expression that the wire can carry; one in thirty has a hundred nodes and more.
    ModelNode expression(int depth) {
        ModelNode root = node(depth);
        if (!one_in(30)) return root;
        for (int more = 0; more < 80; ++more)
            root = {0, one_in(4) ? static_cast<int>(below(5)) : 1, 0, "", "", {node(1), root}};
        if (one_in(2)) root = {0, 0, 0, "", "", {{1, 0, 0, word(), "", {}}, root}};
        return root;
    }
    // Now and then with an operator that nobody knows.
    ModelNode node(int depth) {
        if (depth > 0 && !one_in(3)) {
            const int op = one_in(60)  ? 5 + static_cast<int>(below(3))
                           : one_in(2) ? 0
                                       : static_cast<int>(below(5));
            return {0, op, 0, "", "", {node(depth - 1), node(depth - 1)}};
        }
        const std::uint32_t kind = below(8);
        if (kind == 0) return {};
        if (kind == 1) return {2, 0, 0, needle(), tag_name(), {}};
        if (kind > 2) return {1, 0, 0, needle(), "", {}};
        const auto op = static_cast<int>(one_in(40) ? 6 + below(2) : below(6));
        return {3, op, static_cast<std::int32_t>(below(6)), "", tag_name(), {}};
    }

private:
    std::string needle() {
        const std::uint32_t kind = below(6);
        if (kind == 0) return word() + " " + word();
        if (kind == 1) return one_in(3) ? std::string(below(3), ' ') : letters(1 + below(3));
        const std::string text = word();
        return kind > 2 ? text : text.substr(below(text.size()));
    }

    std::mt19937_64 random_;
    const std::uint32_t distinct_;
    std::vector<std::string> words_;
};

inline void read_into(Search& search, const ModelNode& root) {
    const wire::Bytes bytes = root.encode();
    kx_memory_file stream = stream_of(bytes);
    ASSERT_TRUE(search.read(stream));
}

}  // namespace vorrim::test
