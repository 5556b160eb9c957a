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
    /// Where the eyes of a face lie.
    struct Face {
        Transform leftEyeTransform;   ///< relative to the anchor
        Transform rightEyeTransform;  ///< relative to the anchor
    };

    Transform transform;       ///< relative to the world's origin
    std::optional<Face> face;  ///< present for a face anchor
};

/// What a session does; taken over by each run.
struct FaceTrackingConfiguration {
    int maximumNumberOfTrackedFaces = 1;
    bool lightEstimationEnabled = true;
};

/// What a run does with what earlier runs left.
struct RunOptions {
    bool resetTracking = false;          ///< the world's origin is set anew
    bool removeExistingAnchors = false;  ///< a face that is still there gets a new anchor

    friend bool operator==(const RunOptions&, const RunOptions&) = default;
};

/// What a session reports by itself, beside what its scene view does. The library needs none of it, so there is no
/// operation.
class TARVEX_EXPORT FaceTrackingSessionDelegate {
public:
    virtual ~FaceTrackingSessionDelegate() = default;
};

/// A face-tracking session. Thread-safe.
class TARVEX_EXPORT FaceTrackingSession {
public:
    virtual ~FaceTrackingSession() = default;

    /// Held weakly, where it is held at all.
    virtual void setDelegate(std::weak_ptr<FaceTrackingSessionDelegate> /*delegate*/) {}

    /// Starts the session, or restarts it as `options` say.
    virtual void run(const FaceTrackingConfiguration& configuration, RunOptions options) = 0;

    /// Stops the session until the next run; does nothing when it is paused.
    virtual void pause() = 0;
};

/// Called on the scene view's rendering thread.
class TARVEX_EXPORT FaceTrackingDelegate {
public:
    virtual ~FaceTrackingDelegate() = default;

    /// The node that shall stand for a new anchor; null for an anchor that needs none.
    virtual std::shared_ptr<SceneNode> nodeForAnchor(const Anchor& anchor) = 0;

    /// `node` has been given the anchor's transform.
    virtual void didUpdateNode(SceneNode& node, const Anchor& anchor) = 0;
};

enum class AntialiasingMode : std::uint8_t { none = 0, multisampling2X = 1, multisampling4X = 2 };
enum class SceneBackground : std::uint8_t { camera, clear };

/// A view with a session and a scene of its own.
///
/// Made and set up on the thread that starts the distance session, before any other thread knows the view; from then
/// on it is used, and let go of by the library, on the main thread. Only its session is used on any thread.
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

/// What the device can do about faces. Answers at once: it opens no camera.
class TARVEX_EXPORT FaceTracking {
public:
    virtual ~FaceTracking() = default;

    virtual bool isSupported() const = 0;
    virtual int supportedNumberOfTrackedFaces() const = 0;

    /// A new view, its session paused. Called only where face tracking is supported.
    [[nodiscard]] virtual std::shared_ptr<FaceTrackingSceneView> makeSceneView() = 0;
};

}  // namespace tarvex::platform
