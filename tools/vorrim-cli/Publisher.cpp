#include "Publisher.h"

#include <utility>

#include "FileTypes.h"
#include "base/file/primitives.h"
#include "meta/Meta.h"
#include "meta/TagNames.h"

namespace vorrim::cli {

namespace {

constexpr std::chrono::milliseconds kProgressPace{200};
constexpr std::uint32_t kRecordEstimate = 128;  // bytes of a record in a list

std::string_view file_name(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

}  // namespace

FrozenRecord file_record(const std::string& path, const HashedFile& hashed) {
    const std::string name(file_name(path));
    const FileKind kind = kind_of(name);
    Meta record;
    record.setHash(hashed.hash);
    record.setName(name);
    // A size has 32 bits on the wire; of a larger file its low ones travel.
    record.setTagById(TagId::Size, static_cast<std::uint32_t>(hashed.size));
    if (!kind.type.empty()) record.setTagById(TagId::Type, kind.type);
    if (!kind.format.empty()) record.setTagById(TagId::Format, kind.format);
    return FrozenRecord::from(record);
}

Publisher::Publisher(Session& session, OnProgress on_progress)
    : session_(session), on_progress_(std::move(on_progress)) {}

PublishResult Publisher::publish(const FoundFiles& found) {
    using Clock = std::chrono::steady_clock;
    result_ = {};
    result_.unreadable = found.unreadable;
    FileHasher hasher(found.files);
    auto reported = Clock::now();
    for (;;) {
        std::optional<HashedFile> hashed;
        const FileHasher::Next next = hasher.next(hashed, kProgressPace);
        if (next == FileHasher::Next::finished) break;
        if (next == FileHasher::Next::ready) {
            if (hashed) {
                add(found.files[hasher.taken() - 1].path, *hashed);
            } else {
                ++result_.unreadable;
            }
        }
        if (const auto now = Clock::now(); now - reported >= kProgressPace) {
            reported = now;
            session_.handle_arrived();
            const PublishProgress progress{hasher.taken(), found.files.size(), hasher.bytes_done(),
                                           found.bytes};
            if (!on_progress_(progress)) {
                result_.interrupted = true;
                break;
            }
        }
    }
    send_list();
    // Publications are not answered; this is, and messages are handled in order.
    session_.send_fence();
    (void)session_.wait({Session::kFenceAnswer});
    return result_;
}

void Publisher::add(const std::string& path, const HashedFile& hashed) {
    if (!published_.insert(hashed.hash).second) {
        ++result_.copies;
        return;
    }
    list_.push_back(file_record(path, hashed));
    ++result_.files;
    result_.bytes += hashed.size;
    if (list_.size() == kFilesPerList) send_list();
}

void Publisher::send_list() {
    if (list_.empty()) return;
    Packet packet(static_cast<std::uint32_t>(list_.size()) * kRecordEstimate);
    write_8(packet.body(), to_byte(Opcode::OP_OFFER_FILES));
    write_32(packet.body(), static_cast<std::uint32_t>(list_.size()));
    for (const FrozenRecord& record : list_)
        write_bytes(packet.body(), record.view().bytes());
    packet.finish();
    session_.send(std::move(packet));
    ++result_.lists;
    list_.clear();
}

}  // namespace vorrim::cli
