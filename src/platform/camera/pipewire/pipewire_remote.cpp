#include "platform/camera/pipewire/pipewire_remote.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

namespace tarvex::camera {
namespace {

using Clock = PipeWireConnection::Clock;
using Lock = PipeWireConnection::Lock;

std::string_view valueOf(const spa_dict& properties, const char* key) {
    const char* value = spa_dict_lookup(&properties, key);
    return value != nullptr ? value : "";
}

bool isCamera(const spa_dict& properties) {
    return valueOf(properties, PW_KEY_MEDIA_CLASS) == "Video/Source" &&
           valueOf(properties, PW_KEY_MEDIA_ROLE) == "Camera";
}

/// Takes up what the properties say.
void describe(PipeWireCamera& camera, const spa_dict& properties) {
    camera.name.clear();
    for (const char* key : {PW_KEY_NODE_DESCRIPTION, PW_KEY_NODE_NICK, PW_KEY_NODE_NAME})
        if (camera.name.empty()) camera.name = valueOf(properties, key);
    camera.facing = facingOfLocation(valueOf(properties, "api.libcamera.location"));
    if (camera.facing == Facing::unknown) camera.facing = facingOfName(camera.name);
}

bool isThere(const std::filesystem::path& file) {
    std::error_code failure;
    return std::filesystem::exists(file, failure);
}

/// False where there is no trace of PipeWire but its library, which would only complain into the host's standard error.
bool isInstalled() {
    for (const char* variable : {"PIPEWIRE_REMOTE", "PIPEWIRE_CONFIG_DIR", "PIPEWIRE_CONFIG_NAME"})
        if (std::getenv(variable) != nullptr) return true;
    for (const char* variable : {"PIPEWIRE_RUNTIME_DIR", "XDG_RUNTIME_DIR"}) {
        const char* directory = std::getenv(variable);
        if (directory != nullptr && isThere(std::filesystem::path(directory) / "pipewire-0")) return true;
    }
    return isThere("/etc/pipewire/client.conf") || isThere("/usr/share/pipewire/client.conf");
}

}  // namespace

/// A camera's node, and the listener that waits for its properties.
struct PipeWireRemote::Node {
    Node(PipeWireRemote& remote, pw_proxy& bound) : owner(remote), proxy(bound) {}
    ~Node() {
        spa_hook_remove(&listener);
        pw_proxy_destroy(&proxy);
    }
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    PipeWireRemote& owner;
    pw_proxy& proxy;
    PipeWireCamera camera;
    spa_hook listener{};
};

PipeWireRemote::PipeWireRemote(std::shared_ptr<PipeWireConnection> connection) : connection_(std::move(connection)) {
    const Lock lock(*connection_);
    registry_ = pw_core_get_registry(&connection_->core(), PW_VERSION_REGISTRY, 0);
    if (registry_ != nullptr) pw_registry_add_listener(registry_, &listener_, &registryEvents(), this);
}

PipeWireRemote::~PipeWireRemote() {
    const Lock lock(*connection_);
    nodes_.clear();
    if (registry_ == nullptr) return;
    spa_hook_remove(&listener_);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
}

std::expected<std::shared_ptr<PipeWireRemote>, std::string> PipeWireRemote::connect(std::optional<int> descriptor) {
    if (!descriptor && !isInstalled()) return std::unexpected("PipeWire is not installed");
    auto connection = PipeWireConnection::open(descriptor);
    if (!connection) return std::unexpected("PipeWire cannot be reached: " + std::generic_category().message(errno));
    return std::shared_ptr<PipeWireRemote>(new PipeWireRemote(std::move(connection)));
}

std::expected<std::vector<PipeWireCamera>, std::string> PipeWireRemote::cameras(std::chrono::milliseconds patience) {
    const auto deadline = Clock::now() + patience;
    // At first come the nodes, then what was asked about each.
    if (!connection_->catchUp(deadline) || !connection_->catchUp(deadline))
        return std::unexpected("PipeWire does not answer");
    const std::lock_guard guard(mutex_);
    std::vector<PipeWireCamera> cameras;
    cameras.reserve(nodes_.size());
    for (const auto& [id, node] : nodes_)
        cameras.push_back(node->camera);
    return cameras;
}

std::optional<std::string> PipeWireRemote::whyGone(const PipeWireCamera& camera) {
    if (connection_->isLost()) return "PipeWire has ended";
    const std::lock_guard guard(mutex_);
    if (!nodes_.contains(camera.node)) return "the camera \"" + camera.name + "\" has gone";
    return std::nullopt;
}

const pw_registry_events& PipeWireRemote::registryEvents() {
    static const pw_registry_events events = [] {
        pw_registry_events filled{};
        filled.version = PW_VERSION_REGISTRY_EVENTS;
        filled.global = [](void* self, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
                           const spa_dict* properties) {
            if (properties != nullptr && std::string_view(type) == PW_TYPE_INTERFACE_Node && isCamera(*properties))
                static_cast<PipeWireRemote*>(self)->add(id, *properties);
        };
        filled.global_remove = [](void* self, std::uint32_t id) {
            auto& remote = *static_cast<PipeWireRemote*>(self);
            const std::lock_guard guard(remote.mutex_);
            remote.nodes_.erase(id);
        };
        return filled;
    }();
    return events;
}

// What is known of a node at first lacks the location.
const pw_node_events& PipeWireRemote::nodeEvents() {
    static const pw_node_events events = [] {
        pw_node_events filled{};
        filled.version = PW_VERSION_NODE_EVENTS;
        filled.info = [](void* self, const pw_node_info* information) {
            auto& node = *static_cast<Node*>(self);
            if (information->props == nullptr) return;
            const std::lock_guard guard(node.owner.mutex_);
            describe(node.camera, *information->props);
        };
        return filled;
    }();
    return events;
}

void PipeWireRemote::add(std::uint32_t id, const spa_dict& properties) {
    void* proxy = pw_registry_bind(registry_, id, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, 0);
    if (proxy == nullptr) return;
    auto node = std::make_unique<Node>(*this, *static_cast<pw_proxy*>(proxy));
    node->camera.node = id;
    node->camera.serial = valueOf(properties, PW_KEY_OBJECT_SERIAL);
    describe(node->camera, properties);
    pw_node_add_listener(static_cast<pw_node*>(proxy), &node->listener, &nodeEvents(), node.get());
    const std::lock_guard guard(mutex_);
    nodes_.insert_or_assign(id, std::move(node));
}

}  // namespace tarvex::camera
