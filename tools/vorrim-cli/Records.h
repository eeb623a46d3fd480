#pragma once
// Records as they are shown: files, users, sources.
//
// Two forms of each: cells of a table for people, and a JSON object for scripts. The names in the
// objects are a promise; docs/cli.md lists them.

#include <cstdint>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <vector>

#include "TablePrinter.h"
#include "base/file/kx_memory_file.h"
#include "meta/ClientId.h"
#include "meta/FileHash.h"
#include "meta/FrozenRecord.h"
#include "meta/RecordView.h"

namespace vorrim::cli {

struct Source {
    ClientId id;
    std::uint16_t port;
};

// Readers of answers. All raise Failure when the bytes are none.
[[nodiscard]] std::vector<FrozenRecord> read_records(kx_memory_file& data);
[[nodiscard]] FrozenRecord read_record(kx_memory_file& data);
[[nodiscard]] std::vector<Source> read_endpoints(kx_memory_file& data);  // u8 n, n * (u32, u16)

[[nodiscard]] TablePrinter file_table(std::span<const FrozenRecord> records);
[[nodiscard]] TablePrinter user_table(std::span<const FrozenRecord> records);
[[nodiscard]] TablePrinter source_table(std::span<const Source> sources);

[[nodiscard]] nlohmann::json file_json(RecordView record);
[[nodiscard]] nlohmann::json user_json(RecordView record);
[[nodiscard]] nlohmann::json source_json(const Source& source);

// 1.0.0.0 and the like, for an identifier as for an address.
[[nodiscard]] std::string dotted(ClientId id);

}  // namespace vorrim::cli
