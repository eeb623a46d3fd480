#pragma once
// The small messages that more than one place sends.

#include <cstdint>
#include <string_view>

#include "meta/ClientId.h"
#include "meta/Opcodes.h"
#include "meta/Packet.h"
#include "meta/RecordView.h"

namespace vorrim {

// A text as a client may receive it: longer ones are cut to what a counted text can hold.
[[nodiscard]] Packet make_text_packet(Opcode opcode, std::string_view text);
[[nodiscard]] Packet make_id_packet(Opcode opcode, ClientId id);
[[nodiscard]] Packet make_record_packet(Opcode opcode, RecordView record);

// The packet of `opcode` in the making; the caller writes the rest and calls finish.
[[nodiscard]] Packet begin_packet(Opcode opcode, std::uint32_t payload_estimate);

}  // namespace vorrim
