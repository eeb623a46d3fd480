#pragma once
// The bytes that the load generator sends, and the files that it makes up. Everything follows from
// the seed.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/Random.h"

namespace vorrim::load {

using Bytes = std::vector<std::byte>;
using Hash = std::array<std::byte, 16>;

// The hash of the made-up file with this number.
[[nodiscard]] Hash hash_of(std::uint64_t seed, std::uint64_t file);
// A file name of one to ten words; the words follow Zipf's law.
[[nodiscard]] std::string name_of(std::uint64_t seed, std::uint64_t file);
// One word, as frequent in questions as in names.
[[nodiscard]] std::string word(Random& random);

// Whole frames.
// `who` tells clients apart that announce the same port.
[[nodiscard]] Bytes login(std::uint16_t port, std::uint64_t who = 0);
[[nodiscard]] Bytes offer(std::uint64_t seed, std::uint64_t first, std::uint64_t count);
[[nodiscard]] Bytes get_sources(const Hash& hash);
[[nodiscard]] Bytes find_nobody();
[[nodiscard]] Bytes search(const std::string& first, const std::string& second);
[[nodiscard]] Bytes join_room(std::uint16_t room);
[[nodiscard]] Bytes room_message(const std::string& text);

// Whole datagrams.
[[nodiscard]] Bytes datagram_status(std::uint32_t challenge);
[[nodiscard]] Bytes datagram_sources(const Hash& hash);

}  // namespace vorrim::load
