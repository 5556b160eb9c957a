#include "platform/portable/glm_scene_graph.h"

#include <algorithm>
#include <glm/gtc/type_ptr.hpp>
#include <glm/mat4x4.hpp>
#include <vector>

namespace tarvex::platform {

namespace {

class GlmSceneNode final : public SceneNode {
public:
    GlmSceneNode() = default;
    GlmSceneNode(const GlmSceneNode&) = delete;
    GlmSceneNode& operator=(const GlmSceneNode&) = delete;

    ~GlmSceneNode() override {
        for (const auto& child : children_)
            child->parent_ = nullptr;
    }

    void addChildNode(const std::shared_ptr<SceneNode>& child) override {
        auto node = std::static_pointer_cast<GlmSceneNode>(child);  // every node comes from this graph
        if (node->parent_ != nullptr) std::erase(node->parent_->children_, node);
        node->parent_ = this;
        children_.push_back(std::move(node));
    }

    void setTransform(const Transform& transform) override { transform_ = glm::make_mat4(transform.columns.data()); }

    Position worldPosition() const override {
        const glm::vec4 translation = worldTransform()[3];
        return {.x = translation.x, .y = translation.y, .z = translation.z};
    }

private:
    glm::mat4 worldTransform() const {
        glm::mat4 world = transform_;
        for (const GlmSceneNode* ancestor = parent_; ancestor != nullptr; ancestor = ancestor->parent_)
            world = ancestor->transform_ * world;
        return world;
    }

    glm::mat4 transform_{1.0F};
    GlmSceneNode* parent_ = nullptr;  // cleared by the parent when it goes
    std::vector<std::shared_ptr<GlmSceneNode>> children_;
};

}  // namespace

std::shared_ptr<SceneNode> GlmSceneGraph::makeNode() {
    return std::make_shared<GlmSceneNode>();
}

std::shared_ptr<SceneNode> GlmSceneGraph::makeReferenceNode() {
    return std::make_shared<GlmSceneNode>();
}

}  // namespace tarvex::platform
