#include "Meter.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <string>
#include <system_error>
#include <time.h>
#include <unistd.h>

namespace vorrim::load {

namespace {

constexpr double kWarmUpShare = 0.2;
constexpr double kLongestWarmUp = 0.5;  // seconds

Clock::duration seconds(double count) {
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(count));
}

}  // namespace

double ServerProcess::processor_seconds() const noexcept {
    clockid_t clock{};
    timespec used{};
    if (pid_ == 0 || ::clock_getcpuclockid(pid_, &clock) != 0 ||
        ::clock_gettime(clock, &used) != 0) {
        return 0;
    }
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

std::uint64_t ServerProcess::resident_bytes() const {
    if (pid_ == 0) return 0;
    unsigned long size = 0;
    unsigned long resident = 0;
    if (std::FILE* const file =
            std::fopen(("/proc/" + std::to_string(pid_) + "/statm").c_str(), "r")) {
        if (std::fscanf(file, "%lu %lu", &size, &resident) != 2) resident = 0;
        std::fclose(file);
    }
    return resident * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

std::uint64_t ServerProcess::descriptors() const {
    std::error_code gone;
    const std::filesystem::directory_iterator open("/proc/" + std::to_string(pid_) + "/fd", gone);
    return static_cast<std::uint64_t>(std::distance(begin(open), end(open)));
}

Meter::Meter(const Options& options, Result& result)
    : server_(options.server_pid),
      result_(result),
      begin_(Clock::now() + seconds(std::min(options.seconds * kWarmUpShare, kLongestWarmUp))),
      end_(begin_ + seconds(options.seconds)) {}

bool Meter::running(Clock::time_point now) {
    if (over_) return false;
    if (!counting_ && now >= begin_) {
        counting_ = true;
        begin_ = now;
        processor_at_begin_ = server_.processor_seconds();
    }
    if (now < end_) return true;
    result_.server_seconds = server_.processor_seconds() - processor_at_begin_;
    result_.seconds = std::chrono::duration<double>(now - begin_).count();
    counting_ = false;
    over_ = true;
    return false;
}

}  // namespace vorrim::load
