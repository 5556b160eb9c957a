#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace tarvex::camera {

/// A table of a FlatBuffers file that nobody vouches for: every offset is checked before it is followed, and a field
/// that leads outside the file reads as absent. Looks at the file's bytes, which must outlive it.
///
/// The format: https://flatbuffers.dev/internals/ (a table begins with the distance back to its list of fields).
class FlatBufferTable {
public:
    /// The file's root; absent when the file is no FlatBuffers file of that identifier (its bytes 4 to 7).
    static std::optional<FlatBufferTable> root(std::span<const std::byte> file, std::string_view identifier);

    /// A number of the table; `otherwise` when the field is absent, as the format has it for default values.
    template <typename Number>
    Number number(std::size_t field, Number otherwise) const;

    std::optional<FlatBufferTable> table(std::size_t field) const;

    /// The bytes of a vector of numbers; empty when the field is absent.
    std::span<const std::byte> bytes(std::size_t field) const { return vector(field, 1); }
    std::span<const std::byte> numbers(std::size_t field, std::size_t size) const { return vector(field, size); }

    /// A vector of tables: how many, and the one at a place.
    std::size_t tableCount(std::size_t field) const { return vector(field, 4).size() / 4; }
    std::optional<FlatBufferTable> tableAt(std::size_t field, std::size_t place) const;

private:
    FlatBufferTable(std::span<const std::byte> file, std::size_t position, std::span<const std::byte> fields)
        : file_(file), position_(position), fields_(fields) {}

    static std::optional<FlatBufferTable> at(std::span<const std::byte> file, std::size_t position);

    /// Where the field lies in the file, `size` bytes of it; absent when the table has none.
    std::optional<std::size_t> position(std::size_t field, std::size_t size) const;
    std::span<const std::byte> vector(std::size_t field, std::size_t elementSize) const;

    std::span<const std::byte> file_;
    std::size_t position_;
    std::span<const std::byte> fields_;
};

}  // namespace tarvex::camera
