// A fuzz target as an ordinary test: its seeds as they are, and then with random damage. A claim
// that does not hold ends the program.
//
//     replay_<name> CORPUS
//     VORRIM_SEED     the seed of the damage (random, and printed, when not set)
//     VORRIM_ROUNDS   how often a seed is damaged (default 10000)
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using Bytes = std::vector<std::uint8_t>;

std::uint64_t number(const char* name, std::uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text != nullptr ? std::strtoull(text, nullptr, 0) : otherwise;
}

class Damage {
public:
    explicit Damage(std::uint64_t seed) : random_(seed) {}

    const Bytes& one_of(const std::vector<Bytes>& seeds) { return seeds[below(seeds.size())]; }

    Bytes done_to(Bytes bytes, const Bytes& other) {
        for (std::size_t times = 1 + below(6); times > 0; --times) {
            const std::size_t place = below(bytes.size() + 1);
            const auto at = bytes.begin() + static_cast<std::ptrdiff_t>(place);
            const bool inside = at != bytes.end();
            const std::size_t kind = below(6);
            if (kind == 0) bytes.insert(at, any_byte());
            if (kind == 1 && inside) bytes.erase(at);
            if (kind == 2 && inside) *at ^= static_cast<std::uint8_t>(1U << below(8));
            if (kind == 3 && inside) *at = any_byte();
            if (kind == 4 && below(4) == 0) bytes.resize(place);
            if (kind == 5) {  // a piece of another seed
                const std::size_t begin = below(other.size() + 1);
                const auto from = other.begin() + static_cast<std::ptrdiff_t>(begin);
                const std::size_t size = below(other.size() - begin + 1);
                bytes.insert(at, from, from + static_cast<std::ptrdiff_t>(size));
            }
        }
        return bytes;
    }

private:
    std::size_t below(std::size_t limit) { return random_() % limit; }
    // The bytes that mean something more often than others.
    std::uint8_t any_byte() {
        constexpr std::uint8_t kTelling[] = {0, 1, 2, 3, 4, 'n', 0x15, 0xFF, 0xFE, 0x80};
        return below(2) == 0 ? kTelling[below(std::size(kTelling))]
                             : static_cast<std::uint8_t>(below(256));
    }

    std::mt19937_64 random_;
};

}  // namespace

int main(int, char** arguments) {
    std::vector<Bytes> seeds;
    for (const auto& entry : std::filesystem::directory_iterator(arguments[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        seeds.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    if (seeds.empty()) return 1;
    std::ranges::sort(seeds);
    const std::uint64_t seed = number("VORRIM_SEED", std::random_device{}());
    const std::uint64_t rounds = number("VORRIM_ROUNDS", 10'000);
    std::cout << "VORRIM_SEED=" << seed << " VORRIM_ROUNDS=" << rounds << std::endl;
    for (const Bytes& bytes : seeds)
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    Damage damage(seed);
    for (std::uint64_t round = 0; round < rounds; ++round) {
        const Bytes bytes = damage.done_to(damage.one_of(seeds), damage.one_of(seeds));
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    return 0;
}
