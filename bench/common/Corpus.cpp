#include "bench/common/Corpus.h"

#include <algorithm>

#include "base/file/primitives.h"
#include "meta/TagNames.h"

namespace vorrim::bench {
namespace {

struct Kind {
    const char* type;
    std::vector<std::string> formats;
    std::uint32_t least_size;
    std::uint32_t most_size;
};

const std::vector<Kind>& kinds() {
    static const std::vector<Kind> all = {
        {"Audio", {"mp3", "ogg", "wav"}, 2'000'000, 9'000'000},
        {"Video", {"avi", "mpg", "mov"}, 50'000'000, 750'000'000},
        {"Pro", {"zip", "iso", "exe"}, 500'000, 700'000'000},
        {"Doc", {"pdf", "txt", "doc"}, 20'000, 5'000'000},
    };
    return all;
}

// Syllables make words that share trigrams the way words of a language do.
std::string make_word(Random& random) {
    static const char* const kOnsets[] = {"b", "c", "d", "f", "g",  "h",  "l",  "m",  "n", "p",
                                          "r", "s", "t", "v", "st", "tr", "ch", "br", "k", "sh"};
    static const char* const kVowels[] = {"a", "e", "i", "o", "u", "ea", "ou", "io", "a", "e"};
    static const char* const kCodas[] = {"", "n", "r", "s", "t", "l", "nd", "ck", "", ""};
    std::string word;
    for (std::uint64_t syllables = 1 + random.below(3); syllables > 0; --syllables) {
        word += kOnsets[random.below(std::size(kOnsets))];
        word += kVowels[random.below(std::size(kVowels))];
        word += kCodas[random.below(std::size(kCodas))];
    }
    return word;
}

void write_text_tag(std::string_view name, std::string_view text, kx_memory_file& to) {
    write_8(to, TagType::text);
    write_string(name, to);
    write_string(text, to);
}

}  // namespace

Corpus::Corpus(std::uint64_t seed) : seed_(seed) {
    Random random(seed);
    double sum = 0;
    words_.reserve(kVocabulary);
    for (std::size_t rank = 0; rank < kVocabulary; ++rank) {
        std::string word = make_word(random);
        // Beyond the everyday words: numbers of tracks and episodes, rare names.
        if (rank > 2000) word += std::to_string(rank % 997);
        words_.push_back(std::move(word));
        cumulated_.push_back(sum += 1.0 / static_cast<double>(rank + 2));
    }
    for (double& chance : cumulated_)
        chance /= sum;
}

std::size_t Corpus::draw_rank(Random& random) const {
    const double at = static_cast<double>(random.next_u64() >> 11) * 0x1p-53;
    const auto found = std::lower_bound(cumulated_.begin(), cumulated_.end(), at);
    return std::min<std::size_t>(static_cast<std::size_t>(found - cumulated_.begin()),
                                 kVocabulary - 1);
}

FileHash Corpus::hash(std::uint64_t number) const {
    Random random(seed_ ^ (number * 2 + 1));
    FileHash hash;
    const std::uint64_t halves[] = {random.next_u64(), random.next_u64()};
    std::memcpy(hash.bytes.data(), halves, sizeof halves);
    return hash;
}

void Corpus::append_record(std::uint64_t number, kx_memory_file& to) const {
    Random random(seed_ ^ (number * 2 + 2));
    const Kind& kind = kinds()[random.below(kinds().size())];
    const std::string& format = kind.formats[random.below(kind.formats.size())];
    std::string name;
    for (int words = 0; words < 7; ++words) {
        if (words != 0) name += words == 3 ? " - " : random.below(3) == 0 ? "_" : " ";
        std::string word = words_[draw_rank(random)];
        if (random.below(2) == 0) word[0] = static_cast<char>(word[0] - 'a' + 'A');
        name += word;
    }
    name += "." + format;

    write_bytes(to, hash(number).bytes);
    write_32(to, 0);
    write_16(to, 0);
    write_32(to, 4);
    write_text_tag("\x01", name, to);
    write_8(to, TagType::integer);
    write_string("\x02", to);
    write_32(to, kind.least_size +
                     static_cast<std::uint32_t>(random.below(kind.most_size - kind.least_size)));
    write_text_tag("\x03", kind.type, to);
    write_text_tag("\x04", format, to);
}

kx_memory_file Corpus::list(std::uint64_t first, std::uint32_t count) const {
    kx_memory_file list(64 * 1024);
    write_32(list, count);
    for (std::uint32_t i = 0; i < count; ++i)
        append_record(first + i, list);
    list.seek(0);
    return list;
}

}  // namespace vorrim::bench
