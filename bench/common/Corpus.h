#pragma once
// A seeded generator of published files that look like those of a file-sharing network: names of
// seven or eight words and about 40 letters, words by Zipf's law (the word of rank r is drawn 1/r
// as often as the first), a size, a type and a format: ten words in all.
#include <cstdint>
#include <string>
#include <vector>

#include "base/Random.h"
#include "base/file/kx_memory_file.h"
#include "meta/FileHash.h"

namespace vorrim::bench {

class Corpus {
public:
    explicit Corpus(std::uint64_t seed);

    // The hash of file number i, and its record appended in network form. The same number always
    // gives the same file.
    [[nodiscard]] FileHash hash(std::uint64_t number) const;
    void append_record(std::uint64_t number, kx_memory_file& to) const;
    // A published list of the files first, first + 1, ... in network form.
    [[nodiscard]] kx_memory_file list(std::uint64_t first, std::uint32_t count) const;

    // The word of a rank, 0 the most frequent.
    [[nodiscard]] const std::string& word(std::size_t rank) const { return words_[rank]; }

    static constexpr std::size_t kVocabulary = 300000;

private:
    [[nodiscard]] std::size_t draw_rank(Random& random) const;

    std::uint64_t seed_;
    std::vector<std::string> words_;
    std::vector<double> cumulated_;  // chance that a drawn rank is at most this one
};

}  // namespace vorrim::bench
