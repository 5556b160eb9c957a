#pragma once

#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "tarvex/export.h"
#include "tarvex/platform/face_tracking.h"

namespace tarvex::testing {

/// A face-tracking view whose anchors appear when a test says so, on the thread on which it says so.
class TARVEX_EXPORT ScriptedSceneView final : public platform::FaceTrackingSceneView,
                                              private platform::FaceTrackingSession {
public:
    /// How the view was set up last.
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

    /// A new anchor: asks the delegate for its node and gives that the anchor's transform. The returned node is null
    /// where the delegate wanted none. Nothing happens while the session is paused.
    std::shared_ptr<platform::SceneNode> addAnchor(const platform::Anchor& anchor) const;

    /// The anchor was seen again: gives `node` its transform and tells the delegate.
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

/// A device that can track `supportedFaces` faces, and that sees what a test shows it.
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
