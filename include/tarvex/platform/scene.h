#pragma once

#include <array>
#include <memory>

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
class TARVEX_EXPORT SceneNode {
public:
    virtual ~SceneNode() = default;

    /// Makes `child` a child of this node, taking it from the parent it had. The node shares ownership of the child.
    virtual void addChildNode(const std::shared_ptr<SceneNode>& child) = 0;

    /// Sets the transform relative to the parent; the identity before.
    virtual void setTransform(const Transform& transform) = 0;

    /// The node's position in the coordinates of the root it hangs under.
    virtual Position worldPosition() const = 0;
};

/// Makes the nodes of 3-D scenes. Thread-safe; a node and its relatives are used by one thread at a time.
class TARVEX_EXPORT SceneGraph {
public:
    virtual ~SceneGraph() = default;

    [[nodiscard]] virtual std::shared_ptr<SceneNode> makeNode() = 0;
    /// An empty node of the kind that can refer to content elsewhere.
    [[nodiscard]] virtual std::shared_ptr<SceneNode> makeReferenceNode() = 0;
};

}  // namespace tarvex::platform
