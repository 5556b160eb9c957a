#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>

#include "tarvex/platform/hid_event_system.h"

namespace tarvex::platform {

/// A light sensor of the kernel's tree as a service, with the report interval that its client keeps. Thread-safe.
///
/// The only property is "ReportInterval": 1 s unless it was set; zero or below is 1 s too, the smallest rate that the
/// library offers, and a positive one is at least 100 ms, as faster polling hangs some sensors. A new interval counts
/// from the next report on.
class IioHidService final : public HidServiceClient {
public:
    explicit IioHidService(std::filesystem::path directory);

    bool setProperty(std::string_view key, std::int32_t value) override;

    [[nodiscard]] const std::filesystem::path& directory() const { return directory_; }
    [[nodiscard]] std::chrono::microseconds reportInterval() const { return reportInterval_.load(); }

private:
    std::filesystem::path directory_;
    std::atomic<std::chrono::microseconds> reportInterval_;
};

}  // namespace tarvex::platform
