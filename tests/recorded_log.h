#pragma once

#include <glib.h>

#include <mutex>

#include "prelude.h"

namespace tarvex::test {

/// The lines of the domain "Tarvex", from any thread, while this lives; GLib's own handler does not receive them.
class RecordedLog {
public:
    RecordedLog() = default;
    ~RecordedLog() { g_log_remove_handler("Tarvex", handler_); }
    RecordedLog(const RecordedLog&) = delete;
    RecordedLog& operator=(const RecordedLog&) = delete;

    /// The warnings so far, or the lines of another level.
    std::vector<std::string> lines(GLogLevelFlags level = G_LOG_LEVEL_WARNING) const {
        const std::lock_guard lock(mutex_);
        return lines_.contains(level) ? lines_.at(level) : std::vector<std::string>();
    }

private:
    static void receive(const char*, GLogLevelFlags level, const char* text, gpointer self) {
        auto& log = *static_cast<RecordedLog*>(self);
        const std::lock_guard lock(log.mutex_);
        log.lines_[level].emplace_back(text);
    }

    mutable std::mutex mutex_;
    std::map<GLogLevelFlags, std::vector<std::string>> lines_;
    guint handler_ = g_log_set_handler("Tarvex", G_LOG_LEVEL_MASK, receive, this);
};

}  // namespace tarvex::test
