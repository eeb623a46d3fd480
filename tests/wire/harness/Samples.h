#pragma once
// One good message of every kind, for tests that cut, change and repeat them.

#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {

// What a client may send over TCP; the last one says good-bye.
[[nodiscard]] inline std::vector<Bytes> every_message() {
    Record person = client_record(hash_of(1), "person");
    person.port = kClosedPort;
    person.tags.push_back(hash_tag("extra", hash_of(2)));
    Record shared = file(hash_of(3), "shared");
    shared.tags.push_back(hash_tag("\x07", hash_of(4)));
    const Bytes expression =
        joined(Op::either, joined(Op::both, words("a b"), tag_is(kSize, Is::above, 7)),
               joined(Op::but_not, tag_contains("Artist", "x"), anything()));
    return {login(person),
            hex("14"),
            offer({shared, file(hash_of(5), "another")}),
            search_files(expression),
            get_sources(hash_of(3)),
            search_users(expression),
            find_user(hash_of(1)),
            callback(7),
            hex("1D"),
            hex("1E").text("hello"),
            hex("1F 02 00"),
            hex("20 01 02 03 04").text("text"),
            more_results(),
            hex("18")};
}

// What may come by datagram.
[[nodiscard]] inline std::vector<Bytes> every_datagram() {
    const Bytes expression = joined(Op::both, words("a b"), tag_is(kSize, Is::above, 7));
    return {udp_status(1),
            udp_search_files(expression),
            udp_search_users(expression),
            udp_sources(hash_of(1)),
            udp_callback(0x0403020A, 4662, 7),
            hex("E3 A0 01 02 03 04 35 12"),
            hex("E3 A1 01 02 03 04 35 12 01 01 02 03 05 35 12")};
}

}  // namespace vorrim::wire
