#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <utility>

#include "tarvex/platform/hid_event_system.h"

namespace tarvex::platform {

/// A light sensor of the kernel's tree as a service, with the report interval that its client sets. Thread-safe.
///
/// The only property is "ReportInterval": 1 s unless it was set; zero or below is 1 s too, the smallest rate that the
/// library offers, and a positive one is at least 100 ms, as faster polling hangs some sensors. A new interval counts
/// from the next report on.
class IioHidService final : public HidServiceClient {
public:
    explicit IioHidService(std::filesystem::path directory) : directory_(std::move(directory)) {}

    bool setProperty(std::string_view key, std::int32_t value) override;

    [[nodiscard]] const std::filesystem::path& directory() const { return directory_; }
    [[nodiscard]] std::chrono::microseconds reportInterval() const { return reportInterval_.load(); }

private:
    std::filesystem::path directory_;
    std::atomic<std::chrono::microseconds> reportInterval_{std::chrono::seconds(1)};
};

/// The event system on the kernel's industrial I/O tree, whose services are the light sensors `iio:deviceN` below a
/// root directory: usage 4 of the vendor-defined page 0xFF00, in the order of their numbers. Thread-safe.
///
/// A client sees the sensors that the tree holds when it is made. One that goes away and comes back under its name
/// reports again; a new one is for the next client. While a client is scheduled, with one run loop at a time, and
/// registered, each sensor is read on a thread of its own; otherwise no thread runs.
class IioHidEventSystem final : public HidEventSystem {
public:
    explicit IioHidEventSystem(std::filesystem::path root = "/sys/bus/iio/devices");

    [[nodiscard]] std::unique_ptr<HidEventSystemClient> createClient() override;

private:
    std::filesystem::path root_;
};

}  // namespace tarvex::platform
