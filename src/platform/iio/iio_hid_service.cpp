#include "platform/iio/iio_hid_service.h"

#include <algorithm>
#include <utility>

namespace tarvex::platform {

namespace {

constexpr std::chrono::microseconds defaultInterval = std::chrono::seconds(1);
constexpr std::chrono::microseconds shortestInterval = std::chrono::milliseconds(100);

}  // namespace

IioHidService::IioHidService(std::filesystem::path directory)
    : directory_(std::move(directory)), reportInterval_(defaultInterval) {}

bool IioHidService::setProperty(std::string_view key, std::int32_t value) {
    if (key != "ReportInterval") return false;
    reportInterval_ = value > 0 ? std::max(shortestInterval, std::chrono::microseconds(value)) : defaultInterval;
    return true;
}

}  // namespace tarvex::platform
