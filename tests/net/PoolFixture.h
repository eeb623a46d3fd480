#pragma once
// A pool that a test drives by hand: one share, a clock that stands still, a network in memory.

#include <gtest/gtest.h>
#include <span>
#include <string>
#include <vector>

#include "net/Connection.h"
#include "net/PoolShare.h"
#include "net/socketPool.h"
#include "tests/base/ManualClock.h"
#include "tests/net/MemoryNet.h"

namespace vorrim {

inline Bytes frame_of(const std::string& payload) {
    return frame_of(std::as_bytes(std::span(payload)));
}

inline Bytes in_a_row(const std::vector<Bytes>& parts) {
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

class PoolFixture : public ::testing::Test {
protected:
    // Turns until nothing is ready any more.
    void settle() {
        for (int i = 0; i < 64; ++i)
            share_.run_once(std::chrono::nanoseconds(0));
    }

    ManualClock clock_;
    MemoryNet net_;
    Limits limits_;  // none
    socketPool pool_{net_, clock_, limits_};
    PoolShare& share_ = pool_.add_share();
};

}  // namespace vorrim
