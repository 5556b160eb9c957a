#pragma once

#include "tarvex/platform/scene.h"

namespace tarvex::platform {

class GlmSceneGraph final : public SceneGraph {
public:
    [[nodiscard]] std::shared_ptr<SceneNode> makeNode() override;
    [[nodiscard]] std::shared_ptr<SceneNode> makeReferenceNode() override;
};

}  // namespace tarvex::platform
