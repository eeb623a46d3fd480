#pragma once
// The searches that are measured, in classes: what a person types, by how frequent the words are,
// and expressions out of which no keyword can be taken.
#include <cstdint>
#include <string>
#include <vector>

#include "base/Random.h"
#include "bench/common/Corpus.h"

namespace vorrim::bench {

struct Query {
    std::string wire;  // the expression in wire form
    // Whole words, all of which must occur; empty for the scans.
    std::vector<std::string> words;
    // The same condition over a folded name: some alternative of which every part occurs. Empty
    // where it is not about texts.
    std::vector<std::vector<std::string>> alternatives;
};

struct QueryClass {
    const char* name;
    const char* question;
    bool scan;        // no keyword can be taken out of them
    bool about_text;  // and not only about numbers
    Query (*make)(const Corpus& corpus, Random& random);

    [[nodiscard]] std::vector<Query> some(const Corpus& corpus, std::size_t count) const;
};

[[nodiscard]] const std::vector<QueryClass>& query_classes();

}  // namespace vorrim::bench
