#include <algorithm>
#include <gtest/gtest.h>
#include <span>
#include <string>
#include <vector>

#include "base/file/primitives.h"
#include "meta/Packet.h"

namespace vorrim {
namespace {

// A socket that takes what its script allows: so many bytes, or nothing now; -1 fails.
class ScriptedSocket final : public kx_file {
public:
    explicit ScriptedSocket(std::vector<std::int32_t> script) : script_(std::move(script)) {}

    std::int32_t write(const void* bytes, std::uint32_t count) override {
        const std::int32_t allowed = script_.at(step_++);
        if (allowed <= 0) return allowed;
        const std::uint32_t moved = std::min(static_cast<std::uint32_t>(allowed), count);
        sent.append(static_cast<const char*>(bytes), moved);
        return static_cast<std::int32_t>(moved);
    }
    std::int32_t read(void*, std::uint32_t) override { return -1; }
    std::uint32_t seek(std::uint32_t) override { return 0; }
    std::uint32_t size() const override { return 0; }
    std::uint32_t tell() const override { return 0; }

    std::string sent;

private:
    std::vector<std::int32_t> script_;
    std::size_t step_ = 0;
};

// How packets are received is the wire tests' matter.
TEST(Packet, SendsTheRestOfTheHeaderFirst) {
    Packet packet(3);
    write_bytes(packet.body(), std::as_bytes(std::span("\x01\xAA\xBB", 3)));
    ScriptedSocket socket({2, 0, 3, 1, 99, -1});
    for (const auto& [progress, moved] :
         {std::pair{Progress::pending, 2U}, std::pair{Progress::pending, 0U},
          std::pair{Progress::pending, 4U}, std::pair{Progress::done, 2U}}) {
        std::uint32_t count = 77;
        EXPECT_EQ(packet.send(socket, count), progress);
        EXPECT_EQ(count, moved);
    }
    EXPECT_EQ(socket.sent, std::string("\xE3\x03\0\0\0\x01\xAA\xBB", 8));
    std::uint32_t count = 0;
    Packet other(1);
    EXPECT_EQ(other.send(socket, count), Progress::failed);
}

}  // namespace
}  // namespace vorrim
