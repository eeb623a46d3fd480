#include "client/index/KeyedHash.h"

#include <bit>
#include <cstring>

#include "base/Random.h"

namespace vorrim {
namespace {

struct SipState {
    std::uint64_t v0, v1, v2, v3;

    void round() noexcept {
        v0 += v1;
        v2 += v3;
        v1 = std::rotl(v1, 13) ^ v0;
        v3 = std::rotl(v3, 16) ^ v2;
        v0 = std::rotl(v0, 32);
        v2 += v1;
        v0 += v3;
        v1 = std::rotl(v1, 17) ^ v2;
        v3 = std::rotl(v3, 21) ^ v0;
        v2 = std::rotl(v2, 32);
    }
    void absorb(std::uint64_t word) noexcept {
        v3 ^= word;
        round();
        v0 ^= word;
    }
};

}  // namespace

KeyedHash::KeyedHash() : KeyedHash(0, 0) {
    Random random = Random::from_system();
    key0_ = random.next_u64();
    key1_ = random.next_u64();
}

std::uint64_t KeyedHash::of(const FileHash& hash) const noexcept {
    std::uint64_t words[2];
    static_assert(sizeof(words) == sizeof(hash.bytes));
    std::memcpy(words, hash.bytes.data(), sizeof(words));
    SipState state{key0_ ^ 0x736f6d6570736575, key1_ ^ 0x646f72616e646f6d,
                   key0_ ^ 0x6c7967656e657261, key1_ ^ 0x7465646279746573};
    state.absorb(words[0]);
    state.absorb(words[1]);
    state.absorb(std::uint64_t{sizeof(words)} << 56);
    state.v2 ^= 0xFF;
    state.round();
    state.round();
    state.round();
    return state.v0 ^ state.v1 ^ state.v2 ^ state.v3;
}

}  // namespace vorrim
