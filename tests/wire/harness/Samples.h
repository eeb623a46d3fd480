#pragma once
// One good message of every kind, for tests that cut, change and repeat them.

#include <vector>

#include "tests/wire/harness/Wire.h"

namespace vorrim::wire {

// What a client may send over TCP; the last one says good-bye.
[[nodiscard]] std::vector<Bytes> every_message();
// What may come by datagram.
[[nodiscard]] std::vector<Bytes> every_datagram();

}  // namespace vorrim::wire
