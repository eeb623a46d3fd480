#include <algorithm>
#include <cstring>
#include <deque>
#include <gtest/gtest.h>
#include <limits>

#include "base/file/primitives.h"
#include "meta/Packet.h"
#include "tests/meta/support.h"

namespace vorrim {
namespace {

using test::Bytes;
using test::operator+;
using test::hex;

// A socket that moves what its script allows: a positive number moves at most so many bytes, 0 has
// nothing now, -1 fails. After the script nothing moves.
class ScriptedSocket final : public kx_file {
public:
    explicit ScriptedSocket(std::deque<std::int32_t> script, Bytes incoming = {})
        : script_(std::move(script)), incoming_(std::move(incoming)) {}

    std::int32_t read(void* buffer, std::uint32_t count) override {
        largest_request = std::max(largest_request, count);
        const std::int32_t allowed = next();
        if (allowed <= 0) return allowed;
        const std::size_t moved = std::min<std::size_t>(
            {static_cast<std::size_t>(allowed), count, incoming_.size() - taken_});
        std::memcpy(buffer, incoming_.data() + taken_, moved);
        taken_ += moved;
        return static_cast<std::int32_t>(moved);
    }
    std::int32_t write(const void* bytes, std::uint32_t count) override {
        const std::int32_t allowed = next();
        if (allowed <= 0) return allowed;
        const std::size_t moved = std::min(static_cast<std::size_t>(allowed), std::size_t{count});
        const auto* from = static_cast<const std::byte*>(bytes);
        sent.insert(sent.end(), from, from + moved);
        return static_cast<std::int32_t>(moved);
    }
    std::uint32_t seek(std::uint32_t) override { return 0; }
    std::uint32_t size() const override { return 0; }
    std::uint32_t tell() const override { return 0; }

    Bytes sent;
    std::uint32_t largest_request = 0;

private:
    std::int32_t next() {
        if (script_.empty()) return 0;
        const std::int32_t step = script_.front();
        script_.pop_front();
        return step;
    }

    std::deque<std::int32_t> script_;
    Bytes incoming_;
    std::size_t taken_ = 0;
};

constexpr std::int32_t kAll = std::numeric_limits<std::int32_t>::max();

Bytes frame_of(const Bytes& payload) {
    Bytes frame = hex("E3 00 00 00 00");
    store_32(&frame[1], static_cast<std::uint32_t>(payload.size()));
    return frame + payload;
}

Packet three_byte_packet() {
    Packet packet(3);
    write_bytes(packet.body(), hex("01 AA BB"));
    return packet;
}

struct Step {
    Progress progress;
    std::uint32_t count;
    friend bool operator==(const Step&, const Step&) = default;
};

Step receive(Packet& packet, kx_file& from) {
    std::uint32_t count = 77;
    const Progress progress = packet.receive(from, count);
    return {progress, count};
}

Step send(Packet& packet, kx_file& to) {
    std::uint32_t count = 77;
    const Progress progress = packet.send(to, count);
    return {progress, count};
}

TEST(Packet, SendsTheRestOfTheHeaderFirst) {
    Packet packet = three_byte_packet();
    ScriptedSocket socket({2, 0, 3, 1, kAll});
    EXPECT_EQ(send(packet, socket), (Step{Progress::pending, 2}));
    EXPECT_EQ(send(packet, socket), (Step{Progress::pending, 0}));
    EXPECT_EQ(send(packet, socket), (Step{Progress::pending, 4}));
    EXPECT_EQ(send(packet, socket), (Step{Progress::done, 2}));
    EXPECT_EQ(socket.sent, hex("E3 03 00 00 00 01 AA BB"));
}

TEST(Packet, ReceiveDecidesOnTheFifthHeaderByte) {
    Packet packet;
    ScriptedSocket good({1, 1, 1, 1, 1, kAll}, frame_of(hex("14")));
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(receive(packet, good), (Step{Progress::pending, 1}));
    EXPECT_FALSE(packet.empty());
    EXPECT_EQ(receive(packet, good), (Step{Progress::done, 2}));
    EXPECT_EQ(read_8(packet.body()), 0x14);

    Packet other;
    ScriptedSocket bad({4, 1, kAll}, hex("E4 01 00 00 00 14"));
    EXPECT_EQ(receive(other, bad), (Step{Progress::pending, 4}));
    EXPECT_EQ(receive(other, bad), (Step{Progress::failed, 1}));
    EXPECT_EQ(receive(other, bad).progress, Progress::failed);
}

TEST(Packet, ReceiveRefusesLengthZeroAndOneAboveTheMaximum) {
    const auto progress = [](std::uint32_t length, std::uint32_t limit) {
        Bytes header = hex("E3 00 00 00 00");
        store_32(&header[1], length);
        Packet packet;
        packet.set_max_payload(limit);
        ScriptedSocket socket({kAll}, header);
        const Step step = receive(packet, socket);
        EXPECT_EQ(step.count, kHeaderSize);
        return step.progress;
    };
    EXPECT_EQ(progress(0, kMaxPayload), Progress::failed);
    EXPECT_EQ(progress(kMaxPayload, kMaxPayload), Progress::pending);
    EXPECT_EQ(progress(kMaxPayload + 1, kMaxPayload), Progress::failed);
    EXPECT_EQ(progress(kMaxPayload + 1, 0xFFFFFFFF), Progress::failed);
    EXPECT_EQ(progress(0xFFFFFFFF, kMaxPayload), Progress::failed);
    EXPECT_EQ(progress(100, 100), Progress::pending);
    EXPECT_EQ(progress(101, 100), Progress::failed);
}

TEST(Packet, ReceiveAsksForMemoryOnlyAsBytesCome) {
    // All of the largest payload is announced and 300 bytes of it come.
    Bytes bytes = hex("E3 00 00 00 00");
    store_32(&bytes[1], kMaxPayload);
    bytes.resize(305);
    Packet packet;
    ScriptedSocket socket({kAll, 100, 100, 100}, bytes);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(receive(packet, socket).progress, Progress::pending);
    EXPECT_LE(socket.largest_request, 4096U);
    EXPECT_LE(packet.body().capacity(), 8192U);
}

TEST(Packet, FrameJudgesBytesWithoutAPacket) {
    using State = Packet::Frame::State;
    const Bytes whole = frame_of(hex("19 01 02")) + hex("E3");
    for (std::size_t size = 0; size < 8; ++size) {
        EXPECT_EQ(Packet::frame(std::span(whole).first(size)).state, State::incomplete) << size;
    }
    EXPECT_EQ(Packet::frame(whole).state, State::complete);
    EXPECT_EQ(Packet::frame(whole).payload_size, 3U);
    EXPECT_EQ(Packet::frame(whole, 2).state, State::bad);
    EXPECT_EQ(Packet::frame(hex("E4 01 00 00")).state, State::incomplete);
    EXPECT_EQ(Packet::frame(hex("E4 01 00 00 00 14")).state, State::bad);
    EXPECT_EQ(Packet::frame(hex("E3 00 00 00 00")).state, State::bad);
    EXPECT_EQ(Packet::frame(hex("E3 FF FF FF FF 14")).state, State::bad);
}

}  // namespace
}  // namespace vorrim
