#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

#include "tarvex/export.h"

namespace tarvex::platform {

/// Growing bytes for one large document.
///
/// Reserve an upper bound: memory that is never written to is never taken, and a large buffer is backed by huge pages.
/// Bytes behind `size()` may be written through `spare`, then kept with `extend`. Throws `std::bad_alloc`. Reentrant.
/// A buffer that was moved from is empty, and can be used again.
class TARVEX_EXPORT ByteBuffer {
public:
    ByteBuffer() = default;
    ByteBuffer(ByteBuffer&& other) noexcept
        : bytes_(std::move(other.bytes_)),
          size_(std::exchange(other.size_, 0)),
          capacity_(std::exchange(other.capacity_, 0)) {}
    ByteBuffer& operator=(ByteBuffer&& other) noexcept {
        bytes_ = std::move(other.bytes_);
        size_ = std::exchange(other.size_, 0);
        capacity_ = std::exchange(other.capacity_, 0);
        return *this;
    }
    ~ByteBuffer() = default;

    /// Makes room for `capacity` bytes in all, so that appending up to there moves nothing.
    void reserve(std::size_t capacity);

    std::size_t size() const noexcept { return size_; }
    const char* data() const noexcept { return bytes_.get(); }
    std::string_view view() const noexcept { return {bytes_.get(), size_}; }

    void append(std::string_view text) {
        if (text.empty()) return;
        std::memcpy(spare(text.size()).data(), text.data(), text.size());
        extend(text.size());
    }
    void append(char byte) {
        spare(1).front() = byte;
        extend(1);
    }

    /// At least `count` writable bytes behind the contents; valid until the next change of the buffer.
    std::span<char> spare(std::size_t count) {
        if (capacity_ - size_ < count) grow(size_ + count);
        return {bytes_.get() + size_, capacity_ - size_};
    }
    /// Adds the first `count` bytes of the last `spare` to the contents.
    void extend(std::size_t count) noexcept { size_ += count; }
    /// Drops the bytes behind the first `size`, which is at most `size()`.
    void truncate(std::size_t size) noexcept { size_ = size; }

private:
    struct Free {
        void operator()(char* bytes) const { std::free(bytes); }
    };

    void grow(std::size_t atLeast);

    std::unique_ptr<char, Free> bytes_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

}  // namespace tarvex::platform
