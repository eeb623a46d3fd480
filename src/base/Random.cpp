#include "base/Random.h"

#include <bit>
#include <cerrno>
#include <sys/random.h>

#include "base/golden_ratio.h"
#include "base/kx_err.h"

namespace vorrim {

Random::Random(std::uint64_t seed) noexcept {
    // SplitMix64: spreads any seed, zero included, over a state that is never all zero.
    for (std::uint64_t& word : state_) {
        seed += kGoldenRatio;
        std::uint64_t mixed = seed;
        mixed = (mixed ^ (mixed >> 30U)) * 0xBF58476D1CE4E5B9U;
        mixed = (mixed ^ (mixed >> 27U)) * 0x94D049BB133111EBU;
        word = mixed ^ (mixed >> 31U);
    }
}

Random Random::from_system() {
    Random random;
    // A request of up to 256 bytes is filled whole once the system's pool is ready.
    ssize_t got = 0;
    do {
        got = getrandom(random.state_.data(), sizeof random.state_, 0);
    } while (got < 0 && errno == EINTR);
    if (got != static_cast<ssize_t>(sizeof random.state_)) kx_error("no random bytes");
    return random;
}

// xoshiro256**.
std::uint64_t Random::next_u64() noexcept {
    const std::uint64_t result = std::rotl(state_[1] * 5U, 7) * 9U;
    const std::uint64_t shifted = state_[1] << 17U;
    state_[2] ^= state_[0];
    state_[3] ^= state_[1];
    state_[1] ^= state_[2];
    state_[0] ^= state_[3];
    state_[2] ^= shifted;
    state_[3] = std::rotl(state_[3], 45);
    return result;
}

std::uint64_t Random::below(std::uint64_t n) noexcept {
    if (n == 0) return 0;
    // The values of the last, incomplete run of n are drawn again, or small results would be
    // likelier.
    const std::uint64_t skip = (0 - n) % n;
    std::uint64_t drawn = next_u64();
    while (drawn < skip)
        drawn = next_u64();
    return drawn % n;
}

}  // namespace vorrim
