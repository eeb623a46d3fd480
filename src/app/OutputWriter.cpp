#include "app/OutputWriter.h"

#include <array>
#include <climits>
#include <cstdio>
#include <cstring>
#include <limits>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

#include "base/kx_err.h"

namespace vorrim {

namespace {

using Length = std::uint16_t;
// A pipe takes as much as a whole, if it takes anything.
constexpr std::size_t kChunk = PIPE_BUF;
constexpr int kNoDescriptor = -1;  // poll passes it over
// After a write, what is printed within so long goes out with the next one: a thousand lines a
// second wake nobody a thousand times.
constexpr int kGatherMs = 5;
constexpr int kForever = -1;

}  // namespace

bool OutputWriter::Texts::add(std::string_view text) noexcept {
    if (text.size() > std::numeric_limits<Length>::max() ||
        bytes_.size() + sizeof(Length) + text.size() > kBound)
        return false;
    const auto length = static_cast<Length>(text.size());
    std::array<char, sizeof(Length)> prefix;
    std::memcpy(prefix.data(), &length, sizeof length);
    bytes_.append(prefix.data(), prefix.size()).append(text);
    return true;
}

std::string_view OutputWriter::Texts::front() const noexcept {
    Length length = 0;
    std::memcpy(&length, bytes_.data() + at_, sizeof length);
    return std::string_view(bytes_).substr(at_ + sizeof length, length);
}

void OutputWriter::Texts::pop() noexcept {
    at_ += sizeof(Length) + front().size();
}

void OutputWriter::Texts::clear() noexcept {
    bytes_.clear();
    at_ = 0;
}

void OutputWriter::Texts::swap(Texts& other) noexcept {
    bytes_.swap(other.bytes_);
    std::swap(at_, other.at_);
}

OutputWriter::OutputWriter(const char* name, std::unique_ptr<TextSink> sink)
    : name_(name), woken_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), sink_(std::move(sink)) {
    if (woken_ < 0) kx_error("no descriptor for an output");
    chunk_.reserve(std::numeric_limits<Length>::max());  // its thread allocates nothing either
    start();
    if (state() != State::running) {
        ::close(woken_);
        kx_error("the system refuses another thread");
    }
}

OutputWriter::~OutputWriter() {
    flush(kLastPatience);
    stop();
    ::close(woken_);
}

void OutputWriter::wake() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(woken_, &one, sizeof one);
}

void OutputWriter::print(std::string_view text) noexcept {
    if (text.empty()) return;
    const kx_guard hold(lock_);
    // Once a text is refused, a shorter one must not take its place.
    if (refused_ > 0 || !waiting_.add(text)) ++refused_;
    if (std::exchange(at_rest_, false)) wake();
}

bool OutputWriter::flush(std::chrono::milliseconds patience) noexcept {
    const auto end = std::chrono::steady_clock::now() + patience;
    wake();
    const kx_guard hold(lock_);
    while (!at_rest_ && rested_.wait_until(lock_, end)) {
    }
    return at_rest_;
}

void OutputWriter::change_sink(std::unique_ptr<TextSink> sink) {
    const kx_guard hold(lock_);
    next_sink_ = std::move(sink);
    wake();
}

void OutputWriter::run_once() {
    if (!take_texts()) {
        wait_for(kNoDescriptor, kForever);
        return;
    }
    while (!writing_.empty())
        bring_some();
    lost_ += std::exchange(lost_after_, 0);
    static_cast<void>(tell_of_lost());  // nobody may ever print anything more
    wait_for(kNoDescriptor, kGatherMs);
}

bool OutputWriter::take_texts() {
    const kx_guard hold(lock_);
    writing_.clear();
    if (waiting_.empty() && refused_ == 0) {
        at_rest_ = true;
        rested_.notify_all();
        return false;
    }
    writing_.swap(waiting_);
    lost_after_ = std::exchange(refused_, 0);
    return true;
}

void OutputWriter::bring_some() {
    std::uint32_t count = 0;
    chunk_.clear();
    do {
        chunk_ += writing_.front();
        writing_.pop();
        ++count;
    } while (!writing_.empty() && chunk_.size() + writing_.front().size() <= kChunk);
    if (!tell_of_lost() || !put(chunk_)) lost_ += count;
}

bool OutputWriter::tell_of_lost() {
    if (lost_ == 0) return true;
    std::array<char, 80> notice;
    const int length = std::snprintf(notice.data(), notice.size(),
                                     "(the %s was full: %u messages are missing)\n", name_, lost_);
    if (length < 0 || !put({notice.data(), static_cast<std::size_t>(length)})) return false;
    lost_ = 0;
    return true;
}

bool OutputWriter::put(std::string_view text) {
    adopt_sink();
    while (sink_) {
        switch (sink_->write(text)) {
            case TextSink::Taken::all:
                return true;
            case TextSink::Taken::failed:
                return false;
            case TextSink::Taken::later:
                break;
        }
        if (stop_requested()) return false;
        wait_for(sink_->descriptor(), kForever);
        adopt_sink();
    }
    return false;
}

void OutputWriter::adopt_sink() {
    const kx_guard hold(lock_);
    if (next_sink_) sink_ = std::move(next_sink_);
}

void OutputWriter::wait_for(int descriptor, int limit_ms) const noexcept {
    std::array<pollfd, 2> events{pollfd{woken_, POLLIN, 0}, pollfd{descriptor, POLLOUT, 0}};
    ::poll(events.data(), events.size(), limit_ms);
    std::uint64_t count = 0;
    if (events[0].revents != 0) [[maybe_unused]]
        const auto drained = ::read(woken_, &count, sizeof count);
}

}  // namespace vorrim
