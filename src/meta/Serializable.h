#pragma once
// What has a form on the network and a form on disk: tags, records, lists.
//
// Writing returns whether all of it could be encoded; decoding, whether the bytes were what they
// should be. What failed has been printed on the current output by then. Decoding from disk raises
// kx_err when the bytes end early; decoding from the network never raises for what it reads.
//
// saveList is how anything that consists of such elements writes them: the count, then each.

#include <cstdint>

#include "base/file/kx_file.h"
#include "base/file/primitives.h"

namespace vorrim {

class Serializable {
public:
    virtual ~Serializable() = default;

    [[nodiscard]] virtual bool toNetwork(kx_file& to) const = 0;
    [[nodiscard]] virtual bool fromNetwork(kx_file& from) = 0;
    [[nodiscard]] virtual bool toDisk(kx_file& to) const = 0;
    [[nodiscard]] virtual bool fromDisk(kx_file& from) = 0;
    // Bytes that the network form takes, or an estimate not below it.
    [[nodiscard]] virtual std::uint32_t size() const = 0;

protected:
    Serializable() = default;
    Serializable(const Serializable&) = default;
    Serializable& operator=(const Serializable&) = default;

    enum class Form { network, disk };

    // The tags of a record: stops at the first element that fails, after saying so.
    template <typename Pointers>
    [[nodiscard]] static bool saveList(const Pointers& elements, kx_file& to, Form form) {
        write_32(to, static_cast<std::uint32_t>(elements.size()));
        for (const auto& element : elements) {
            if (!save(*element, to, form)) return false;
        }
        return true;
    }

    // The records of a list, whose lock the caller holds: says so for each element that fails, and
    // goes on with the next.
    template <typename Pointers>
    [[nodiscard]] static bool saveListLocked(const Pointers& elements, kx_file& to, Form form) {
        write_32(to, static_cast<std::uint32_t>(elements.size()));
        bool all = true;
        for (const auto& element : elements)
            all = save(*element, to, form) && all;
        return all;
    }

private:
    [[nodiscard]] static bool save(const Serializable& element, kx_file& to, Form form);
};

}  // namespace vorrim
