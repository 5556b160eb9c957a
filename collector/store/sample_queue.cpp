#include "collector/store/sample_queue.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <type_traits>

namespace tarvex::collector {
namespace {

constexpr std::size_t bufferSize = 256UL * 1024;
// Of a batch, in memory: enough that one is sorted for the store's sake.
constexpr std::size_t batchBytes = 4UL * 1024 * 1024;

void append(std::vector<std::byte>& bytes, const void* data, std::size_t size) {
    const auto* first = static_cast<const std::byte*>(data);
    bytes.insert(bytes.end(), first, first + size);
}

void append(std::vector<std::byte>& bytes, const std::string& text) {
    const auto size = static_cast<std::uint64_t>(text.size());
    append(bytes, &size, sizeof size);
    append(bytes, text.data(), text.size());
}

template <typename Sample>
    requires std::is_trivially_copyable_v<Sample>
void encode(std::vector<std::byte>& bytes, const Sample& sample) {
    append(bytes, &sample, sizeof sample);
}

void encode(std::vector<std::byte>& bytes, const OtherSample& sample) {
    append(bytes, &sample.time, sizeof sample.time);
    append(bytes, sample.type);
    append(bytes, sample.values);
}

/// Reads what `encode` wrote, from the file and then from memory.
class Reader {
public:
    Reader(const std::optional<TemporaryFile>& file, std::span<const std::byte> rest) : file_(file), rest_(rest) {}

    void read(void* into, std::size_t size) {
        auto* to = static_cast<std::byte*>(into);
        while (size > 0) {
            if (position_ == window_.size()) refill();
            const std::size_t count = std::min(size, window_.size() - position_);
            std::memcpy(to, window_.data() + position_, count);
            position_ += count;
            to += count;
            size -= count;
        }
    }

    std::string text() {
        std::uint64_t size = 0;
        read(&size, sizeof size);
        std::string text(size, '\0');
        read(text.data(), size);
        return text;
    }

private:
    void refill() {
        position_ = 0;
        if (file_ && offset_ < file_->size()) {
            own_.resize(bufferSize);
            own_.resize(file_->read(offset_, own_));
            offset_ += own_.size();
            window_ = own_;
        } else {
            window_ = std::exchange(rest_, {});
        }
        if (window_.empty()) throw std::logic_error("a queue of samples ends before its last one");
    }

    const std::optional<TemporaryFile>& file_;
    std::span<const std::byte> rest_;
    std::vector<std::byte> own_;
    std::span<const std::byte> window_;
    std::size_t position_ = 0;
    std::uint64_t offset_ = 0;
};

template <typename Sample>
    requires std::is_trivially_copyable_v<Sample>
std::size_t decode(Reader& reader, Sample& sample) {
    reader.read(&sample, sizeof sample);
    return sizeof sample;
}

std::size_t decode(Reader& reader, OtherSample& sample) {
    reader.read(&sample.time, sizeof sample.time);
    sample.type = reader.text();
    sample.values = reader.text();
    return sizeof sample + sample.type.size() + sample.values.size();
}

}  // namespace

template <typename Sample>
void SampleQueue<Sample>::push(const Sample& sample) {
    encode(buffer_, sample);
    ++size_;
    if (buffer_.size() < bufferSize) return;
    if (!file_) file_.emplace(directory_);
    file_->append(buffer_);
    buffer_.clear();
}

template <typename Sample>
void SampleQueue<Sample>::visit(const std::function<void(std::span<const Sample>)>& look) const {
    Reader reader(file_, buffer_);
    std::vector<Sample> batch;
    std::size_t bytes = 0;
    for (std::uint64_t done = 0; done < size_; ++done) {
        Sample& sample = batch.emplace_back();
        bytes += decode(reader, sample);
        if (bytes < batchBytes && done + 1 < size_) continue;
        std::ranges::sort(batch);
        const auto repeats = std::ranges::unique(batch);
        batch.erase(repeats.begin(), repeats.end());
        look(batch);
        batch.clear();
        bytes = 0;
    }
}

template class SampleQueue<AmbientLight>;
template class SampleQueue<Distance>;
template class SampleQueue<OtherSample>;

}  // namespace tarvex::collector
