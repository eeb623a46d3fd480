#pragma once
// Brings texts to a sink on a thread of its own, so that nobody who prints waits for a disk, a pipe
// or a terminal.
//
//     print ──► queue, bounded ──► the thread ──► sink: texts whole, in their order, many at once
//                    │
//                    └ full, or the sink fails: texts are lost, and counted
//
// A line in the place of the lost ones says how many they were: as soon as the texts in front of
// them are out, and after a failure together with the next text. Without a sink every text is lost.
//
// Threads: any.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "app/TextSink.h"
#include "base/Annotations.h"
#include "base/kx_critical_section.h"
#include "net/kx_thread.h"

namespace vorrim {

class OutputWriter final : private kx_thread {
public:
    // Bytes that may wait, with two for each text.
    static constexpr std::size_t kBound = 256 * 1024;
    // How long the end of a process waits for somebody who does not read.
    static constexpr std::chrono::milliseconds kLastPatience{1000};

    // `name` is how the line about lost texts calls the sink: a constant text. Raises kx_err when
    // the system refuses a thread or a descriptor.
    OutputWriter(const char* name, std::unique_ptr<TextSink> sink);
    // What was printed still goes out, if somebody takes it.
    ~OutputWriter() override;

    // Allocates nothing.
    void print(std::string_view text) noexcept;
    // Waits until all that was printed has gone out or is lost, but not longer than this: false.
    bool flush(std::chrono::milliseconds patience) noexcept;
    // From now on texts go there, those that wait included.
    void change_sink(std::unique_ptr<TextSink> sink);

private:
    // Texts, each behind its length.
    class Texts final {
    public:
        Texts() { bytes_.reserve(kBound); }
        [[nodiscard]] bool empty() const noexcept { return at_ == bytes_.size(); }
        [[nodiscard]] bool add(std::string_view text) noexcept;
        [[nodiscard]] std::string_view front() const noexcept;
        void pop() noexcept;
        void clear() noexcept;
        void swap(Texts& other) noexcept;

    private:
        std::string bytes_;
        std::size_t at_ = 0;  // of the front text
    };

    void run_once() override;
    void wake() override;
    [[nodiscard]] bool take_texts();
    void bring_some();
    // False when the sink fails.
    [[nodiscard]] bool tell_of_lost();
    [[nodiscard]] bool put(std::string_view text);
    void adopt_sink();
    // For the descriptor to have room, if there is one, or a wake, or the end of the limit.
    void wait_for(int descriptor, int limit_ms) const noexcept;

    const char* const name_;
    const int woken_;

    mutable kx_critical_section lock_;
    kx_condition rested_;
    Texts waiting_ GUARDED_BY(lock_);
    std::uint32_t refused_ GUARDED_BY(lock_) = 0;  // behind those that wait
    std::unique_ptr<TextSink> next_sink_ GUARDED_BY(lock_);
    bool at_rest_ GUARDED_BY(lock_) = false;

    // The thread's own.
    std::unique_ptr<TextSink> sink_;
    Texts writing_;
    std::string chunk_;             // several of them, for one write
    std::uint32_t lost_ = 0;        // not yet told of
    std::uint32_t lost_after_ = 0;  // behind the texts being written
};

}  // namespace vorrim
