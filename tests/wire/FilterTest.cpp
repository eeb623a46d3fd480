// The operator's filters: which files are refused at publication.
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

TEST(Filters, RefuseWhatMatches) {
    const Record large = file(hash_of(1), "Film.avi", 651);
    const Record small = file(hash_of(2), "Song.mp3", 650);
    const Record bare{hash_of(3), 0, 0, {int_tag(kSize, 0x80000000)}};
    struct Row {
        const char* filters;
        Names kept;
    };
    for (const auto& [filters, kept] : {
             Row{"filter[0]=(#SIZE > 650)", {"Song.mp3", ""}},  // signed
             Row{"filter[0]=song", {"Film.avi", ""}},
             Row{"filter[0]=Song", {"Film.avi", "Song.mp3", ""}},  // in small letters only
             Row{"filter[0]=", {""}},
             // Any one of them refuses; behind a gap they are not read.
             Row{"filter[0]=mp3\nfilter[1]=(#SIZE = 651)\nfilter[3]=*", {""}},
         }) {
        const ServerProcess server(filters);
        const WireClient client = WireClient::high(server);
        client.publish({large, small, bare});
        EXPECT_EQ(names(client.search(anything()).records), kept) << filters;
        EXPECT_EQ(server.status().files, kept.size()) << filters;
    }
}

TEST(Filters, ABadOneIsReportedAndSkippedAndARefusedFileHasNoSource) {
    const ServerProcess server("filter[0]=()()\nfilter[1]=(mp3)|(#SIZE > )\nfilter[2]=refused");
    server.wait_for_output("\nBad filter: ()()\nBad filter: (mp3)|(#SIZE > )\nWelcome");
    const WireClient client = WireClient::high(server);
    client.publish({file(hash_of(1), "refused"), file(hash_of(2), "taken")});
    EXPECT_EQ(client.sources(hash_of(1)), std::nullopt);
    client.publish({file(hash_of(1), "under a better name"), file(hash_of(2), "refused now")});
    for (const std::uint32_t number : {1U, 2U})
        EXPECT_EQ(client.sources(hash_of(number)), std::vector<Source>{client.source()});
}

}  // namespace
}  // namespace vorrim::wire
