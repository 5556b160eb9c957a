#include "tarvex/platform/byte_buffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <new>

namespace tarvex::platform {

namespace {

constexpr std::size_t hugePagesPayFrom = std::size_t{8} << 20U;

// Page faults, not the copying, dominate the building of a large document.
void adviseHugePages(std::span<char> bytes) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const auto address = reinterpret_cast<std::uintptr_t>(bytes.data());
    const std::span<char> aligned = bytes.subspan((page - address % page) % page);
    madvise(aligned.data(), aligned.size() / page * page, MADV_HUGEPAGE);
}

}  // namespace

void ByteBuffer::reserve(std::size_t capacity) {
    if (capacity <= capacity_) return;
    char* bytes = bytes_.release();
    auto* grown = static_cast<char*>(std::realloc(bytes, capacity));
    bytes_.reset(grown == nullptr ? bytes : grown);
    if (grown == nullptr) throw std::bad_alloc();
    capacity_ = capacity;
    if (capacity >= hugePagesPayFrom) adviseHugePages({grown, capacity});
}

void ByteBuffer::grow(std::size_t atLeast) {
    reserve(std::max({atLeast, capacity_ * 2, std::size_t{128}}));
}

}  // namespace tarvex::platform
