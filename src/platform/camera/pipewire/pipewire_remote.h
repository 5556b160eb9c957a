#pragma once

#include <pipewire/pipewire.h>

#include <chrono>
#include <cstdint>
#include <expected>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/camera/capture/frame_source.h"
#include "platform/camera/pipewire/facing.h"
#include "platform/camera/pipewire/pipewire_connection.h"

namespace tarvex::camera {

/// A camera among the nodes of PipeWire.
struct PipeWireCamera {
    std::uint32_t node = 0;  ///< its id
    std::string serial;      ///< its number, which no later node has
    std::string name;        ///< for a person
    Facing facing = Facing::unknown;
};

/// The cameras that PipeWire's daemon has, or shows this process; none is opened. Thread-safe.
class PipeWireRemote {
public:
    /// Connects to the user's daemon, or to the one at the other end of the file descriptor, which stays the
    /// caller's. One sentence when there is none.
    static std::expected<std::shared_ptr<PipeWireRemote>, std::string> connect(
        std::optional<int> descriptor = std::nullopt);
    ~PipeWireRemote();
    PipeWireRemote(const PipeWireRemote&) = delete;
    PipeWireRemote& operator=(const PipeWireRemote&) = delete;

    /// The cameras, in the order of their ids. One sentence when the daemon does not say within `patience` which there
    /// are.
    std::expected<std::vector<PipeWireCamera>, std::string> cameras(std::chrono::milliseconds patience);

    /// One sentence once the camera, which `cameras` has returned, has gone or the daemon has; does not wait.
    std::optional<std::string> whyGone(const PipeWireCamera& camera);

    const std::shared_ptr<PipeWireConnection>& connection() const { return connection_; }

private:
    struct Node;

    explicit PipeWireRemote(std::shared_ptr<PipeWireConnection> connection);

    static const pw_registry_events& registryEvents();
    static const pw_node_events& nodeEvents();
    void add(std::uint32_t id, const spa_dict& properties);

    std::shared_ptr<PipeWireConnection> connection_;
    pw_registry* registry_ = nullptr;
    spa_hook listener_{};
    std::mutex mutex_;
    std::map<std::uint32_t, std::unique_ptr<Node>> nodes_;  ///< under `mutex_`; changed by the connection's thread
};

}  // namespace tarvex::camera
