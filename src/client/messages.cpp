#include "client/messages.h"

#include "base/file/primitives.h"

namespace vorrim {

Packet begin_packet(Opcode opcode, std::uint32_t payload_estimate) {
    Packet packet(payload_estimate);
    write_8(packet.body(), static_cast<std::uint8_t>(opcode));
    return packet;
}

Packet make_text_packet(Opcode opcode, std::string_view text) {
    text = writable_part(text);
    Packet packet = begin_packet(opcode, static_cast<std::uint32_t>(text.size()) + 3);
    write_string(text, packet.body());
    packet.finish();
    return packet;
}

Packet make_id_packet(Opcode opcode, ClientId id) {
    Packet packet = begin_packet(opcode, 5);
    write_32(packet.body(), id.value());
    packet.finish();
    return packet;
}

Packet make_record_packet(Opcode opcode, RecordView record) {
    Packet packet = begin_packet(opcode, static_cast<std::uint32_t>(record.bytes().size()) + 1);
    write_bytes(packet.body(), record.bytes());
    packet.finish();
    return packet;
}

}  // namespace vorrim
