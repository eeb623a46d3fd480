#include "bench/common/Queries.h"

#include <memory>

#include "base/file/kx_memory_file.h"
#include "search/SearchNode.h"

namespace vorrim::bench {
namespace {

using Node = std::unique_ptr<SearchNode>;

Node text(const std::string& words) {
    return std::make_unique<SN_Substring>(words);
}
Node both(std::int32_t op, Node left, Node right) {
    return std::make_unique<SN_Operator>(op, std::move(left), std::move(right));
}
std::string wire_of(const SearchNode& root) {
    kx_memory_file wire(256);
    root.write(wire);
    const auto bytes = wire.written();
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// Between one file in ten and one in a hundred; a few files in a million.
const std::string& common(const Corpus& corpus, Random& random) {
    return corpus.word(4 + random.below(60));
}
const std::string& rare(const Corpus& corpus, Random& random) {
    return corpus.word(60000 + random.below(100000));
}

Query words(const std::vector<std::string>& all) {
    std::string typed;
    for (const std::string& word : all)
        typed += (typed.empty() ? "" : " ") + word;
    return {wire_of(*text(typed)), all, {all}};
}

Query common_then_rare(const Corpus& corpus, Random& random) {
    const std::string& first = common(corpus, random);
    return words({first, rare(corpus, random)});
}
Query rare_then_common(const Corpus& corpus, Random& random) {
    const std::string& first = rare(corpus, random);
    return words({first, common(corpus, random)});
}
Query common_and_common(const Corpus& corpus, Random& random) {
    const std::string& first = common(corpus, random);
    return words({first, common(corpus, random)});
}
Query one_common(const Corpus& corpus, Random& random) {
    return words({common(corpus, random)});
}
Query one_rare(const Corpus& corpus, Random& random) {
    return words({rare(corpus, random)});
}

Query either(const std::string& one, const std::string& other) {
    return {wire_of(*both(CombineOp::kOr, text(one), text(other))), {}, {{one}, {other}}};
}
Query or_of_rare(const Corpus& corpus, Random& random) {
    const std::string& first = rare(corpus, random);
    return either(first, rare(corpus, random));
}
Query or_of_common(const Corpus& corpus, Random& random) {
    const std::string& first = common(corpus, random);
    return either(first, common(corpus, random));
}
Query substring_behind_or(const Corpus& corpus, Random& random) {
    std::string part;
    while (part.size() < 4)  // long enough for signatures to tell anything
        part = rare(corpus, random).substr(1);
    const std::string& one = rare(corpus, random);
    const std::string& other = common(corpus, random);
    const Node root =
        both(CombineOp::kOr, text(part), both(CombineOp::kAnd, text(one), text(other)));
    return {wire_of(*root), {}, {{part}, {one, other}}};
}
Query all_and_rare_size(const Corpus&, Random&) {
    constexpr std::int32_t kFewAreLarger = 749'990'000;
    const Node root =
        both(CombineOp::kAnd, std::make_unique<SN_All>(),
             std::make_unique<SN_IntTagCompare>(kFewAreLarger, CompareOp::kGreater, "\x02"));
    return {wire_of(*root), {}, {}};
}

}  // namespace

const std::vector<QueryClass>& query_classes() {
    static const std::vector<QueryClass> all = {
        {"common_then_rare", "a frequent word, then a rare one", false, true, common_then_rare},
        {"rare_then_common", "a rare word, then a frequent one", false, true, rare_then_common},
        {"common_and_common", "two frequent words", false, true, common_and_common},
        {"one_common", "one frequent word", false, true, one_common},
        {"one_rare", "one rare word", false, true, one_rare},
        {"or_of_rare", "one rare word or another", true, true, or_of_rare},
        {"or_of_common", "one frequent word or another", true, true, or_of_common},
        {"substring_behind_or", "part of a rare word, or two words", true, true,
         substring_behind_or},
        {"all_and_rare_size", "everything of a rare size", true, false, all_and_rare_size},
    };
    return all;
}

std::vector<Query> QueryClass::some(const Corpus& corpus, std::size_t count) const {
    Random random(3);
    std::vector<Query> queries;
    queries.reserve(count);
    while (queries.size() < count)
        queries.push_back(make(corpus, random));
    return queries;
}

}  // namespace vorrim::bench
