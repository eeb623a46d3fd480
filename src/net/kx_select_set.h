#pragma once
// The readiness set of a real kernel: one edge-triggered epoll instance and an eventfd to wake it.

#include <array>
#include <sys/epoll.h>

#include "net/kx_socket_set.h"

namespace vorrim {

class kx_select_set final : public kx_socket_set {
public:
    kx_select_set();  // raises kx_err when the system has no descriptor left for it
    ~kx_select_set() override;
    kx_select_set(const kx_select_set&) = delete;
    kx_select_set& operator=(const kx_select_set&) = delete;

    [[nodiscard]] bool add(int handle, std::uint32_t flags, Task& task) override;
    void want_writable(int handle, Task& task) override;
    void remove(int handle) override;
    [[nodiscard]] std::span<const ReadyTask> wait(
        std::optional<std::chrono::nanoseconds> limit) override;
    void wake() noexcept override;

private:
    static constexpr std::size_t kBatch = 256;  // events taken by one system call

    int epoll_ = -1;
    int wake_ = -1;
    std::array<epoll_event, kBatch> events_{};
    std::array<ReadyTask, kBatch> ready_{};
};

}  // namespace vorrim
