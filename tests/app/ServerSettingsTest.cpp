#include <gtest/gtest.h>

#include "app/ServerSettings.h"
#include "tests/app/CurrentFolder.h"
#include "tests/base/RecordingOutput.h"

namespace vorrim {
namespace {

// That the other keys reach what they are for is the wire tests' matter.
TEST(ServerSettings, AnEmptyPasswordIsOneAndTimesBelowZeroAreOff) {
    const CurrentFolder folder;
    ServerSettings settings;
    RecordingOutput output;
    folder.write("vorrim.ini",
                 "[server]\nadminName=A\nadminPass=\nfirstPacketSeconds=1\npacketSeconds=2\n"
                 "unreadSeconds=3\nfloodSeconds=-4\n");
    const LoadedSettings loaded = settings.load("vorrim.ini", output, [] { return 0U; });
    ASSERT_TRUE(loaded.administrator);
    EXPECT_EQ(loaded.administrator->password, "");
    Limits limits;
    Random random(1);
    settings.apply_to(limits, random);
    EXPECT_EQ(limits.first_packet.count(), 1);
    EXPECT_EQ(limits.packet.count(), 2);
    EXPECT_EQ(limits.stalled_send.count(), 3);
    EXPECT_EQ(limits.flood.count(), 0);
}

}  // namespace
}  // namespace vorrim
