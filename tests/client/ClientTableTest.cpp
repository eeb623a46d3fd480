#include <algorithm>
#include <thread>

#include "tests/base/RecordingOutput.h"
#include "tests/client/Chance.h"
#include "tests/client/ServiceFixture.h"

namespace vorrim {
namespace {

using namespace test;

class ClientTableTest : public ServiceFixture {
protected:
    ClientTableTest() : ServiceFixture(kHighestLowId - 3) {}

    // A connection that is in the table but has never been served.
    std::unique_ptr<ClientConnection> connect() {
        return std::make_unique<ClientConnection>(nullptr, pool_, service_);
    }
};

TEST_F(ClientTableTest, LowIdentifiersThatAreUsedUpAreHandedOutAgain) {
    RecordingOutput output;
    std::vector<std::unique_ptr<ClientConnection>> clients;
    const auto next = [&] {
        clients.push_back(connect());
        EXPECT_TRUE(clients_.assign_low_id(*clients.back()));
        return clients_.id_of(*clients.back()).value();
    };
    const std::string error = "ERROR: looped IDs.\n";
    for (std::uint32_t id = kHighestLowId - 3; id <= kHighestLowId; ++id)
        ASSERT_EQ(next(), id);
    EXPECT_EQ(output.take(), "");
    // Of two that leave before the next one comes the later release replaces the earlier.
    clients[0].reset();
    clients[1].reset();
    EXPECT_EQ(next(), kHighestLowId - 2);
    EXPECT_EQ(output.take(), "");
    auto addressed = connect();
    ASSERT_EQ(clients_.claim(*addressed, ClientId(2)), ClientTable::Claim::given);
    EXPECT_EQ(next(), 1U);
    EXPECT_EQ(next(), 3U);
    EXPECT_EQ(output.take(), error + error);
}

TEST_F(ClientTableTest, AnIdentifierInUseIsNeverGivenTwice) {
    // An address that ends in .0 is a number of the low range.
    auto addressed = connect();
    ASSERT_EQ(clients_.claim(*addressed, ClientId(kHighestLowId - 3)), ClientTable::Claim::given);
    auto low = connect();
    ASSERT_TRUE(clients_.assign_low_id(*low));
    EXPECT_EQ(clients_.id_of(*low), ClientId(kHighestLowId - 2));
}

TEST_F(ClientTableTest, WhoLeavesTakesItsFilesAlongUnlessTheIndexEndsToo) {
    const auto stay_and_go = [this](std::uint32_t first) {
        const auto client = connect();
        files_.publish(files(first, first + 3, [](std::uint32_t) { return "song"; }), ClientId(),
                       kPort);
    };
    stay_and_go(0);
    EXPECT_EQ(files_.source_total(), 0);
    service_.ending = true;
    stay_and_go(3);
    EXPECT_EQ(files_.source_total(), 3);
    EXPECT_EQ(clients_.count(), 0);
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

// Some have no record yet, some leave, some log in once more.
TEST_F(ClientTableTest, ASearchFindsWhomEvaluatingEverybodyFinds) {
    SCOPED_TRACE("VORRIM_SEED=" + std::to_string(seed_of_run()));
    Chance chance(seed_of_run(), 1000, 9);
    std::vector<std::unique_ptr<ClientConnection>> clients;
    for (int round = 0; round < 300; ++round) {
        for (std::size_t coming = chance.below(30); coming > 0; --coming)
            clients.push_back(connect());
        for (std::size_t leaving = chance.below(20); leaving > 0 && !clients.empty(); --leaving)
            clients.erase(clients.begin() + chance.below(clients.size()));
        for (std::size_t login = chance.below(20); login > 0 && !clients.empty(); --login)
            clients_.set_record(*clients[chance.below(clients.size())], frozen(chance.record()));

        const RecordingOutput output;
        Search search;
        ASSERT_NO_FATAL_FAILURE(read_into(search, chance.expression(3)));
        const std::size_t limit = 1 + chance.below(300);
        std::vector<std::string> expected;
        {
            const HeldReports reports;
            for (const auto& client : clients) {
                const RecordView record = clients_.record_of(*client);
                if (expected.size() < limit && search.matches(record))
                    expected.push_back(std::string(text_of(record.bytes())));
            }
        }
        const std::size_t lines = output.texts().size();
        std::vector<std::string> met;
        {
            ClientMatches matches(search, static_cast<std::int32_t>(limit));
            while (!clients_.match_clients(matches, [&met](RecordView record) {
                met.push_back(std::string(text_of(record.bytes())));
            })) {
            }
        }
        EXPECT_EQ(met, expected) << printed(search);
        EXPECT_EQ(output.texts().size(), 2 * lines) << printed(search);
    }
}

}  // namespace
}  // namespace vorrim
