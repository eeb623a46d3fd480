#include <algorithm>
#include <thread>

#include "tests/client/ServiceFixture.h"

namespace vorrim {
namespace {

class ClientTableTest : public ServiceFixture {
protected:
    ClientTableTest() : ServiceFixture(kHighestLowId - 3) {}

    // A connection that is in the table but has never been served.
    std::unique_ptr<ClientConnection> connect() {
        return std::make_unique<ClientConnection>(nullptr, pool_, service_);
    }
};

TEST_F(ClientTableTest, LowIdentifiersRunOutAndComeBackOneAtATime) {
    std::vector<std::unique_ptr<ClientConnection>> clients;
    for (std::uint32_t id = kHighestLowId - 3; id <= kHighestLowId; ++id) {
        clients.push_back(connect());
        ASSERT_TRUE(clients_.assign_low_id(*clients.back()));
        EXPECT_EQ(clients_.id_of(*clients.back()), ClientId(id));
    }
    auto late = connect();
    EXPECT_FALSE(clients_.assign_low_id(*late));
    // Two leave before the next one comes: the later release replaces the earlier.
    clients[0].reset();
    clients[1].reset();
    EXPECT_TRUE(clients_.assign_low_id(*late));
    EXPECT_EQ(clients_.id_of(*late), ClientId(kHighestLowId - 2));
    auto later = connect();
    EXPECT_FALSE(clients_.assign_low_id(*later));
    // The highest low identifier is never recycled.
    clients[3].reset();
    EXPECT_FALSE(clients_.assign_low_id(*later));
}

TEST_F(ClientTableTest, AnIdentifierInUseIsNeverGivenTwice) {
    // An address that ends in .0 is a number of the low range.
    auto addressed = connect();
    ASSERT_EQ(clients_.claim(*addressed, ClientId(kHighestLowId - 3)), ClientTable::Claim::given);
    auto low = connect();
    ASSERT_TRUE(clients_.assign_low_id(*low));
    EXPECT_EQ(clients_.id_of(*low), ClientId(kHighestLowId - 2));
}

TEST_F(ClientTableTest, AWalkMeetsOnceAndInOrderWhoeverStaysWhileOthersLeave) {
    std::vector<std::uint64_t> staying;
    std::vector<std::unique_ptr<ClientConnection>> clients;
    std::vector<std::unique_ptr<ClientConnection>> leaving;
    for (int i = 0; i < 5000; ++i) {
        auto client = connect();
        if (i % 2 == 0) staying.push_back(client->arrival());
        (i % 2 == 0 ? clients : leaving).push_back(std::move(client));
    }
    std::vector<std::uint64_t> met;
    {
        const std::jthread others([&leaving] { leaving.clear(); });
        clients_.for_each(
            [&met](const ClientConnection& client) { met.push_back(client.arrival()); });
    }
    EXPECT_TRUE(std::ranges::is_sorted(met, std::ranges::less_equal()));
    EXPECT_TRUE(std::ranges::includes(met, staying));
}

}  // namespace
}  // namespace vorrim
