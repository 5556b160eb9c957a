#pragma once

#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "tarvex/export.h"
#include "tarvex/platform/face_tracking.h"

namespace tarvex::testing {

/// A face-tracking view whose anchors a test adds and updates; the delegate is called on the test's thread. The session
/// and its records (`runs`, `isRunning`, `pauses`) are thread-safe, the rest is reentrant.
class TARVEX_EXPORT ScriptedSceneView final : public platform::FaceTrackingSceneView,
                                              private platform::FaceTrackingSession {
public:
    /// The most recent settings.
    struct Settings {
        bool showsStatistics = false;
        int preferredFramesPerSecond = 60;
        bool rendersContinuously = true;
        platform::AntialiasingMode antialiasing = platform::AntialiasingMode::multisampling4X;
        platform::SceneBackground background = platform::SceneBackground::camera;
        std::weak_ptr<platform::FaceTrackingDelegate> delegate;
        std::weak_ptr<platform::FaceTrackingSessionDelegate> sessionDelegate;
        std::vector<std::string_view> order;  ///< the names of these members, as they were set
    };

    /// One call of `FaceTrackingSession::run`.
    struct Run {
        platform::FaceTrackingConfiguration configuration;
        platform::RunOptions options;
    };

    ScriptedSceneView();
    ~ScriptedSceneView() override;

    /// Adds an anchor: takes its node from the delegate and gives it the anchor's transform. Null where the delegate
    /// returns none. Nothing happens while the session is paused.
    std::shared_ptr<platform::SceneNode> addAnchor(const platform::Anchor& anchor) const;

    /// Gives `node` the transform of an updated anchor and notifies the delegate, unless the session is paused.
    void updateAnchor(platform::SceneNode& node, const platform::Anchor& anchor) const;

    const Settings& settings() const { return settings_; }
    std::vector<Run> runs() const;
    bool isRunning() const;
    int pauses() const;

    void setDelegate(std::weak_ptr<platform::FaceTrackingDelegate> delegate) override;
    platform::FaceTrackingSession& session() override { return *this; }
    void setShowsStatistics(bool shows) override;
    void setPreferredFramesPerSecond(int framesPerSecond) override;
    void setRendersContinuously(bool continuously) override;
    void setAntialiasingMode(platform::AntialiasingMode mode) override;
    void setSceneBackground(platform::SceneBackground background) override;

private:
    void setDelegate(std::weak_ptr<platform::FaceTrackingSessionDelegate> delegate) override;
    void run(const platform::FaceTrackingConfiguration& configuration, platform::RunOptions options) override;
    void pause() override;

    template <typename Value>
    void set(std::string_view name, Value Settings::* member, Value value);

    Settings settings_;
    mutable std::mutex mutex_;
    std::vector<Run> runs_;
    bool running_ = false;
    int pauses_ = 0;
};

/// A device that tracks up to `supportedFaces` faces, which a test adds to its views. Reentrant.
class TARVEX_EXPORT ScriptedFaceTracking final : public platform::FaceTracking {
public:
    explicit ScriptedFaceTracking(bool supported = true, int supportedFaces = 1);
    ~ScriptedFaceTracking() override;

    bool isSupported() const override { return supported_; }
    int supportedNumberOfTrackedFaces() const override { return supportedFaces_; }
    [[nodiscard]] std::shared_ptr<platform::FaceTrackingSceneView> makeSceneView() override;

    /// The views that were made, in their order; an entry is empty once nobody holds the view.
    const std::vector<std::weak_ptr<ScriptedSceneView>>& views() const { return views_; }

private:
    bool supported_;
    int supportedFaces_;
    std::vector<std::weak_ptr<ScriptedSceneView>> views_;
};

}  // namespace tarvex::testing
