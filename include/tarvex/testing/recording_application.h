#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "tarvex/export.h"
#include "tarvex/platform/application.h"

namespace tarvex::testing {

/// Records the URLs that are to be opened, and opens none. Thread-safe.
class TARVEX_EXPORT RecordingApplication final : public platform::Application {
public:
    void openUrl(const Url& url) override {
        const std::scoped_lock lock(mutex_);
        openedUrls_.push_back(url.string());
    }

    bool isOpeningUrl() const override {
        const std::scoped_lock lock(mutex_);
        return openingUrl_;
    }
    /// Sets the result of `isOpeningUrl`, which is false initially.
    void setOpeningUrl(bool opening) {
        const std::scoped_lock lock(mutex_);
        openingUrl_ = opening;
    }

    std::vector<std::string> openedUrls() const {
        const std::scoped_lock lock(mutex_);
        return openedUrls_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> openedUrls_;
    bool openingUrl_ = false;
};

}  // namespace tarvex::testing
