#pragma once

#include <array>
#include <memory>
#include <vector>

#include "tarvex/export.h"

namespace tarvex::platform {

/// A 4×4 transform in column-major order: the last four numbers hold the translation.
struct Transform {
    std::array<float, 16> columns;

    static constexpr Transform identity() { return {{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}}; }
};

/// Metres, x to the right, y up, z against the viewing direction.
struct Position {
    float x = 0;
    float y = 0;
    float z = 0;
};

/// A node of a scene without content of its own: a coordinate system within its parent's.
/// Reentrant, a node and all its relatives being one object.
class TARVEX_EXPORT SceneNode {
public:
    SceneNode() = default;
    ~SceneNode();
    SceneNode(const SceneNode&) = delete;
    SceneNode& operator=(const SceneNode&) = delete;

    /// Makes `child` a child of this node, taking it from the parent it had. The node shares ownership of the child.
    void addChildNode(const std::shared_ptr<SceneNode>& child);

    /// Sets the transform relative to the parent; the identity before.
    void setTransform(const Transform& transform) { transform_ = transform; }

    /// The node's position in the coordinates of its root.
    Position worldPosition() const;

private:
    Transform transform_ = Transform::identity();
    SceneNode* parent_ = nullptr;  // cleared by the parent when it goes
    std::vector<std::shared_ptr<SceneNode>> children_;
};

}  // namespace tarvex::platform
