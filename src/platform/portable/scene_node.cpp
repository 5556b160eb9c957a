#include <array>
#include <cstddef>

#include "tarvex/platform/scene.h"

namespace tarvex::platform {
namespace {

using Vector = std::array<float, 4>;

Vector product(const Transform& transform, const Vector& vector) {
    const auto& m = transform.columns;
    Vector result{};
    for (std::size_t row = 0; row < result.size(); ++row)
        result[row] = m[row] * vector[0] + m[row + 4] * vector[1] + m[row + 8] * vector[2] + m[row + 12] * vector[3];
    return result;
}

}  // namespace

SceneNode::~SceneNode() {
    for (const auto& child : children_)
        child->parent_ = nullptr;
}

void SceneNode::addChildNode(const std::shared_ptr<SceneNode>& child) {
    if (child->parent_ != nullptr) std::erase(child->parent_->children_, child);
    child->parent_ = this;
    children_.push_back(child);
}

// Of the product of all transforms up to the root, the last column alone is needed.
Position SceneNode::worldPosition() const {
    const auto& m = transform_.columns;
    Vector world{m[12], m[13], m[14], m[15]};
    for (const SceneNode* ancestor = parent_; ancestor != nullptr; ancestor = ancestor->parent_)
        world = product(ancestor->transform_, world);
    return {.x = world[0], .y = world[1], .z = world[2]};
}

}  // namespace tarvex::platform
