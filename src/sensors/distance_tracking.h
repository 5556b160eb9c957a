#pragma once

#include <memory>
#include <optional>

#include "storage/persistence_controller.h"
#include "tarvex/platform/platform.h"
#include "tarvex/view.h"

namespace tarvex {

/// Measures the distances of the user's eyes from the camera: one face-tracking run for each measurement. Needs a
/// platform that supports face tracking, whose main queue outlives the tracker.
///
/// `make` and `beginMeasurement` are thread-safe against the delegate's callbacks, which arrive on the scene view's
/// rendering thread and store the sample there. The last reference may end on any thread: the tracker and its reference
/// to the scene view end on the main queue, or stay in memory when that queue has ended.
class DistanceTracking final : public platform::FaceTrackingDelegate,
                               public platform::FaceTrackingSessionDelegate,
                               public std::enable_shared_from_this<DistanceTracking> {
public:
    /// A tracker whose scene view is set up. Thread-safe.
    static std::shared_ptr<DistanceTracking> make(platform::Platform& platform, PersistenceController& store);

    /// Attaches the scene view to `view` and starts tracking afresh. The run ends with the first face update, or
    /// 3 seconds after its start; a pause that an earlier run scheduled can end it too.
    void beginMeasurement(const std::shared_ptr<View>& view);

    std::shared_ptr<platform::SceneNode> nodeForAnchor(const platform::Anchor& anchor) override;
    void didUpdateNode(platform::SceneNode& node, const platform::Anchor& anchor) override;

private:
    DistanceTracking(platform::Platform& platform, PersistenceController& store);

    void setUpSceneView();
    void recordEyeDistances();

    const std::shared_ptr<platform::SceneNode>& rightEyeNode();
    const std::shared_ptr<platform::SceneNode>& leftEyeNode();
    const platform::FaceTrackingConfiguration& configuration();

    platform::Platform& platform_;
    PersistenceController& store_;
    std::shared_ptr<platform::FaceTrackingSceneView> sceneView_;
    std::shared_ptr<platform::SceneNode> contentNode_;
    std::shared_ptr<platform::SceneNode> rightEyeNode_;
    std::shared_ptr<platform::SceneNode> leftEyeNode_;
    std::optional<platform::FaceTrackingConfiguration> configuration_;
};

}  // namespace tarvex
