#include "app/DescriptorLimit.h"

#include <algorithm>
#include <sys/resource.h>

namespace vorrim {

namespace {

constexpr std::uint64_t kReserve = 64;
constexpr std::uint64_t kPerWorker = 2;

}  // namespace

std::uint64_t raiseDescriptorLimit() noexcept {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
    const rlim_t before = limit.rlim_cur;
    limit.rlim_cur = limit.rlim_max;
    return ::setrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_cur : before;
}

std::uint64_t descriptorsNeeded(std::int32_t clients, std::int32_t workers) noexcept {
    const auto count = [](std::int32_t n) { return static_cast<std::uint64_t>(std::max(n, 0)); };
    return count(clients) + kPerWorker * count(workers) + kReserve;
}

}  // namespace vorrim
