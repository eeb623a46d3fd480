#pragma once
// A list of IPv4 networks: "127.0.0.0/8, 192.168.1.7".
//
// Threads: a value; read from any thread while nobody changes it.

#include <cstdint>
#include <string_view>
#include <vector>

namespace vorrim {

class NetworkList final {
public:
    // Adds one network: an address, with a prefix length behind a slash or without (then it is that
    // address alone). False, and nothing is added, when the text is neither.
    [[nodiscard]] bool add(std::string_view network);
    // Adds every network of a list separated by commas or blanks; each one that cannot be read is
    // handed to `refuse`.
    template <class Refuse>
    void add_all(std::string_view list, Refuse&& refuse) {
        constexpr std::string_view kSeparators = ", \t\r";
        while (true) {
            const std::size_t begin = list.find_first_not_of(kSeparators);
            if (begin == std::string_view::npos) return;
            list.remove_prefix(begin);
            const std::string_view one = list.substr(0, list.find_first_of(kSeparators));
            if (!add(one)) refuse(one);
            list.remove_prefix(one.size());
        }
    }

    // `address` is in identifier form.
    [[nodiscard]] bool contains(std::uint32_t address) const noexcept {
        for (const Network& network : networks_)
            if ((address & network.mask) == network.address) return true;
        return false;
    }

private:
    struct Network {
        std::uint32_t address;  // both in identifier form
        std::uint32_t mask;
    };
    std::vector<Network> networks_;
};

}  // namespace vorrim
