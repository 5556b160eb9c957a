#include "platform/camera/pipewire/pipewire_frame_source.h"

#include <utility>

#include "platform/camera/capture/frame_decoder.h"
#include "platform/camera/pipewire/pipewire_stream.h"

namespace tarvex::camera {
namespace {

std::string nameOf(const PipeWireCamera& camera) {
    return "the camera \"" + camera.name + "\"";
}

class PipeWireFrameSource final : public FrameSource {
public:
    PipeWireFrameSource(std::shared_ptr<PipeWireRemote> remote, PipeWireCamera camera, FrameDecoder decoder)
        : remote_(std::move(remote)),
          camera_(std::move(camera)),
          decoder_(std::move(decoder)),
          stream_(remote_->connection(), camera_.serial) {}

    std::expected<bool, std::string> next(std::chrono::milliseconds patience,
                                          const std::function<void(const Frame&)>& look) override {
        if (auto frame = stream_.next(patience)) return decoder_.decode(*std::move(frame), patience, look);
        if (auto reason = remote_->whyGone(camera_)) return std::unexpected(std::move(*reason));
        if (auto reason = stream_.failure())
            return std::unexpected(nameOf(camera_) + " delivers no frames: " + *reason);
        return false;
    }

private:
    std::shared_ptr<PipeWireRemote> remote_;
    PipeWireCamera camera_;
    FrameDecoder decoder_;
    PipeWireStream stream_;
};

}  // namespace

std::expected<std::unique_ptr<FrameSource>, std::string> openPipeWireCamera(std::shared_ptr<PipeWireRemote> remote,
                                                                            const PipeWireCamera& camera) {
    auto decoder = FrameDecoder::open(nameOf(camera));
    if (!decoder) return std::unexpected(decoder.error());
    return std::make_unique<PipeWireFrameSource>(std::move(remote), camera, std::move(*decoder));
}

}  // namespace tarvex::camera
