#include "platform/camera/vision/flat_buffer.h"

#include <cstring>
#include <utility>

namespace tarvex::camera {
namespace {

// The format is little-endian, as every machine that the library is built for.
template <typename Number>
std::optional<Number> read(std::span<const std::byte> bytes, std::size_t position) {
    if (position > bytes.size() || bytes.size() - position < sizeof(Number)) return std::nullopt;
    Number number{};
    std::memcpy(&number, bytes.data() + position, sizeof(Number));
    return number;
}

std::optional<std::size_t> follow(std::span<const std::byte> file, std::size_t position) {
    const auto distance = read<std::uint32_t>(file, position);
    if (!distance || *distance > file.size() - position) return std::nullopt;
    return position + *distance;
}

}  // namespace

std::optional<FlatBufferTable> FlatBufferTable::root(std::span<const std::byte> file, std::string_view identifier) {
    constexpr std::size_t identifierPosition = 4;
    if (file.size() < identifierPosition + identifier.size()) return std::nullopt;
    if (std::memcmp(file.data() + identifierPosition, identifier.data(), identifier.size()) != 0) return std::nullopt;
    const auto position = follow(file, 0);
    if (!position) return std::nullopt;
    return at(file, *position);
}

std::optional<FlatBufferTable> FlatBufferTable::at(std::span<const std::byte> file, std::size_t position) {
    const auto back = read<std::int32_t>(file, position);
    if (!back) return std::nullopt;
    const std::int64_t fields = static_cast<std::int64_t>(position) - *back;
    if (fields < 0 || std::cmp_greater_equal(fields, file.size())) return std::nullopt;
    const auto size = read<std::uint16_t>(file, static_cast<std::size_t>(fields));
    if (!size || *size > file.size() - static_cast<std::size_t>(fields)) return std::nullopt;
    return FlatBufferTable(file, position, file.subspan(static_cast<std::size_t>(fields), *size));
}

std::optional<std::size_t> FlatBufferTable::position(std::size_t field, std::size_t size) const {
    const auto offset = read<std::uint16_t>(fields_, 4 + 2 * field);
    if (!offset || *offset == 0) return std::nullopt;
    const std::size_t found = position_ + *offset;
    if (found > file_.size() || file_.size() - found < size) return std::nullopt;
    return found;
}

template <typename Number>
Number FlatBufferTable::number(std::size_t field, Number otherwise) const {
    const auto found = position(field, sizeof(Number));
    return found ? read<Number>(file_, *found).value_or(otherwise) : otherwise;
}
template std::int8_t FlatBufferTable::number(std::size_t, std::int8_t) const;
template std::int32_t FlatBufferTable::number(std::size_t, std::int32_t) const;
template std::uint32_t FlatBufferTable::number(std::size_t, std::uint32_t) const;

std::optional<FlatBufferTable> FlatBufferTable::table(std::size_t field) const {
    const auto found = position(field, sizeof(std::uint32_t));
    if (!found) return std::nullopt;
    const auto target = follow(file_, *found);
    if (!target) return std::nullopt;
    return at(file_, *target);
}

std::span<const std::byte> FlatBufferTable::vector(std::size_t field, std::size_t elementSize) const {
    const auto found = position(field, sizeof(std::uint32_t));
    if (!found) return {};
    const auto start = follow(file_, *found);
    if (!start) return {};
    const auto count = read<std::uint32_t>(file_, *start);
    const std::size_t first = *start + sizeof(std::uint32_t);
    if (!count || *count > (file_.size() - first) / elementSize) return {};
    return file_.subspan(first, *count * elementSize);
}

std::optional<FlatBufferTable> FlatBufferTable::tableAt(std::size_t field, std::size_t place) const {
    const auto elements = vector(field, sizeof(std::uint32_t));
    if (place >= elements.size() / sizeof(std::uint32_t)) return std::nullopt;
    const auto element = static_cast<std::size_t>(elements.data() - file_.data()) + place * sizeof(std::uint32_t);
    const auto target = follow(file_, element);
    if (!target) return std::nullopt;
    return at(file_, *target);
}

}  // namespace tarvex::camera
