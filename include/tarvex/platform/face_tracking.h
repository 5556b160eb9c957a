#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "tarvex/export.h"
#include "tarvex/platform/scene.h"
#include "tarvex/view.h"

namespace tarvex::platform {

/// Something that a session follows in the world.
struct Anchor {
    /// Places of the eyes of a face.
    struct Face {
        Transform leftEyeTransform;   ///< relative to the anchor
        Transform rightEyeTransform;  ///< relative to the anchor
    };

    Transform transform;       ///< relative to the world's origin
    std::optional<Face> face;  ///< present for a face anchor
};

/// Settings of a session; each run applies its own.
struct FaceTrackingConfiguration {
    int maximumNumberOfTrackedFaces = 1;
    bool lightEstimationEnabled = true;
};

/// Effect of a run on the state that earlier runs left.
struct RunOptions {
    bool resetTracking = false;          ///< the world's origin is set anew
    bool removeExistingAnchors = false;  ///< a face that is still there gets a new anchor

    friend bool operator==(const RunOptions&, const RunOptions&) = default;
};

/// Reports of a session itself, beside those of its scene view. The library needs none, so there is no operation.
class TARVEX_EXPORT FaceTrackingSessionDelegate {
public:
    virtual ~FaceTrackingSessionDelegate() = default;
};

/// A face-tracking session. Thread-safe.
class TARVEX_EXPORT FaceTrackingSession {
public:
    virtual ~FaceTrackingSession() = default;

    /// The delegate is held weakly, if at all.
    virtual void setDelegate(std::weak_ptr<FaceTrackingSessionDelegate> /*delegate*/) {}

    /// Starts the session, or restarts it according to `options`.
    virtual void run(const FaceTrackingConfiguration& configuration, RunOptions options) = 0;

    /// Stops the session until the next run; does nothing when it is paused.
    virtual void pause() = 0;
};

/// Receiver of a scene view's reports. Called on the view's rendering thread.
class TARVEX_EXPORT FaceTrackingDelegate {
public:
    virtual ~FaceTrackingDelegate() = default;

    /// Returns the node that represents a new anchor; null for an anchor that needs none.
    virtual std::shared_ptr<SceneNode> nodeForAnchor(const Anchor& anchor) = 0;

    /// Called when `node` has received the anchor's transform.
    virtual void didUpdateNode(SceneNode& node, const Anchor& anchor) = 0;
};

enum class AntialiasingMode : std::uint8_t { none = 0, multisampling2X = 1, multisampling4X = 2 };
enum class SceneBackground : std::uint8_t { camera, clear };

/// A view with a session and a scene of its own.
///
/// Made and set up on the thread that starts the distance session, before any other thread knows the view; from then on
/// thread-bound, and released by the library on the main thread. Its session is thread-safe.
class TARVEX_EXPORT FaceTrackingSceneView : public View {
public:
    /// Keeps the child, which a view of this kind does not show.
    void addSubview(std::shared_ptr<View> child) override { View::addSubview(std::move(child)); }

    /// Held weakly.
    virtual void setDelegate(std::weak_ptr<FaceTrackingDelegate> delegate) = 0;
    virtual FaceTrackingSession& session() = 0;

    virtual void setShowsStatistics(bool shows) = 0;
    virtual void setPreferredFramesPerSecond(int framesPerSecond) = 0;
    virtual void setRendersContinuously(bool continuously) = 0;
    virtual void setAntialiasingMode(AntialiasingMode mode) = 0;
    virtual void setSceneBackground(SceneBackground background) = 0;
};

/// The face-tracking capability of the device. Thread-safe; no operation waits or opens a camera.
class TARVEX_EXPORT FaceTracking {
public:
    virtual ~FaceTracking() = default;

    virtual bool isSupported() const = 0;
    virtual int supportedNumberOfTrackedFaces() const = 0;

    /// A new view, its session paused. Called only where face tracking is supported.
    [[nodiscard]] virtual std::shared_ptr<FaceTrackingSceneView> makeSceneView() = 0;
};

}  // namespace tarvex::platform
