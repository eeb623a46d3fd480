#pragma once
// What nearly every wire test needs.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <signal.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/wire/harness/Administrator.h"
#include "tests/wire/harness/Datagram.h"
#include "tests/wire/harness/WireClient.h"
