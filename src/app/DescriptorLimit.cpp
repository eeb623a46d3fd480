#include "app/DescriptorLimit.h"

#include <algorithm>
#include <climits>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

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

void prepareDescriptors(std::uint64_t count) noexcept {
    const int any = ::eventfd(0, EFD_CLOEXEC);
    if (any < 0) return;
    const std::uint64_t highest = std::min<std::uint64_t>(count, INT_MAX) - 1;
    const int copy = ::fcntl(any, F_DUPFD_CLOEXEC, static_cast<int>(highest));
    if (copy >= 0) ::close(copy);
    ::close(any);
}

std::uint64_t descriptorsNeeded(std::int32_t clients, std::int32_t workers) noexcept {
    const auto count = [](std::int32_t n) { return static_cast<std::uint64_t>(std::max(n, 0)); };
    return count(clients) + kPerWorker * count(workers) + kReserve;
}

}  // namespace vorrim
