#include "collector/http/body_reception.h"

#include <new>

namespace tarvex::collector {

BodyReception::BodyReception(std::filesystem::path spool) : spool_(std::move(spool)), digest_(EVP_MD_CTX_new()) {
    if (!digest_ || EVP_DigestInit_ex(digest_.get(), EVP_sha256(), nullptr) != 1) throw std::bad_alloc();
}

void BodyReception::append(std::span<const std::byte> bytes) {
    if (bytes.empty()) return;
    if (file_.size() == 0) file_ = TemporaryFile(spool_);
    file_.append(bytes);
    EVP_DigestUpdate(digest_.get(), bytes.data(), bytes.size());
}

std::pair<TemporaryFile, Body> BodyReception::finish() {
    Body body{.digest = {},
              .bytes = file_.size(),
              .received = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count()};
    EVP_DigestFinal_ex(digest_.get(), body.digest.data(), nullptr);
    return {std::move(file_), body};
}

LeastRate::LeastRate(std::uint64_t bytesPerSecond, std::chrono::milliseconds window, Clock::time_point now)
    : window_(window),
      need_(bytesPerSecond * static_cast<std::uint64_t>(window.count()) / 1000),
      marks_{{.time = now, .before = 0}} {}

void LeastRate::add(std::uint64_t bytes, Clock::time_point now) {
    constexpr int marksInAWindow = 32;  // fewer arrivals than marks would have to be kept
    if (now - marks_.back().time >= window_ / marksInAWindow) marks_.push_back({.time = now, .before = total_});
    total_ += bytes;
    while (marks_.size() > 1 && marks_[1].before + need_ <= total_)
        marks_.pop_front();
}

}  // namespace tarvex::collector
