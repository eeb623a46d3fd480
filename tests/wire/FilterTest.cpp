// The operator's filters: which files are refused at publication.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

// Four files that every filter below is tried on.
std::vector<Record> candidates() {
    const auto typed = [](std::uint32_t number, const char* name, std::uint32_t size,
                          const char* type) {
        Record record = file(hash_of(number), name, size);
        record.tags.push_back(text_tag(kType, type));
        return record;
    };
    return {typed(1, "Song.mp3", 650, "Audio"), typed(2, "Film.avi", 651, "Video"),
            typed(3, "Tiny song", 1, "audio"),
            Record{hash_of(4),
                   0,
                   0,
                   {int_tag(kSize, 0x80000000), hash_tag("tag", hash_of(9))}}};  // without any text
}

TEST(Filters, RefuseWhatMatches) {
    const std::string song = "Song.mp3";
    const std::string film = "Film.avi";
    const std::string tiny = "Tiny song";
    const std::string bare;
    struct Row {
        const char* filters;
        Names kept;
    };
    for (const auto& [filters, kept] : {
             Row{"filter[0]=(#SIZE > 650)", {song, tiny, bare}},  // signed
             Row{"filter[0]=(#SIZE about 650)", {film, tiny, bare}},
             Row{"filter[0]=(#SIZE > none)", {bare}},
             Row{"filter[0]=song", {film, bare}},
             Row{"filter[0]=Song", {song, film, tiny, bare}},  // in small letters only
             Row{"filter[0]=(#TYPE audio)", {film, bare}},
             Row{"filter[0]=*", {}},
             Row{"filter[0]=", {bare}},
             Row{"filter[0]=(song)!(mp3)", {song, film, bare}},
             Row{"filter[0]=(mp3)|(avi)&(film)", {song, tiny, bare}},
             Row{"filter[0]=(mp3) | (song)", {film, tiny, bare}},  // not a bar: and
             // Any one of them refuses; behind a gap they are not read.
             Row{"filter[0]=mp3\nfilter[1]=(#SIZE = 651)\nfilter[3]=*", {tiny, bare}},
         }) {
        const ServerProcess server(filters);
        const WireClient client = WireClient::high(server);
        client.publish(candidates());
        EXPECT_EQ(names(client.search(anything()).records), kept) << filters;
        EXPECT_EQ(server.status().files, kept.size()) << filters;
    }
}

TEST(Filters, ABadOneIsReportedAndSkippedAndARefusedFileHasNoSource) {
    const ServerProcess server(
        "filter[0]=()()\nfilter[1]=(#TYPE audio )\nfilter[2]=(mp3)|(#SIZE > )\nfilter[3]=refused");
    const std::string output = server.output();
    EXPECT_NE(output.find("\nBad filter: ()()\nBad filter: (#TYPE audio )\n"
                          "Bad filter: (mp3)|(#SIZE > )\nWelcome"),
              std::string::npos)
        << output;
    const WireClient client = WireClient::high(server);
    client.publish({file(hash_of(1), "refused"), file(hash_of(2), "taken")});
    EXPECT_EQ(client.sources(hash_of(1)), std::nullopt);
    client.publish({file(hash_of(1), "under a better name"), file(hash_of(2), "refused now")});
    EXPECT_EQ(client.sources(hash_of(1)), std::vector<Source>{client.source()});
    EXPECT_EQ(client.sources(hash_of(2)), std::vector<Source>{client.source()});
}

}  // namespace
}  // namespace vorrim::wire
