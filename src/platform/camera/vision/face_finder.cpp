#include "platform/camera/vision/face_finder.h"

#include <memory>
#include <utility>

#include "platform/camera/vision/face_detector.h"
#include "platform/camera/vision/face_mesh.h"
#include "platform/camera/vision/face_models.h"
#include "platform/camera/vision/head_pose.h"
#include "platform/camera/vision/neural_network.h"
#include "platform/camera/vision/tflite_model.h"

namespace tarvex::camera {
namespace {

using platform::Anchor;

constexpr int smallestSide = 16;

/// Detection, mesh and pose, one after the other.
class FaceLocator {
public:
    FaceLocator(FaceDetector detector, FaceMesh mesh, const FaceGeometry& geometry)
        : detector_(std::move(detector)), mesh_(std::move(mesh)), geometry_(geometry) {}

    std::optional<Anchor> locate(const Frame& frame) {
        if (frame.width < smallestSide || frame.height < smallestSide) return std::nullopt;
        const auto anchor = look(frame);
        detector_.forget();
        mesh_.forget();
        return anchor;
    }

private:
    std::optional<Anchor> look(const Frame& frame) {
        ImagePyramid pyramid(frame);
        const auto region = detector_.nearestFace(pyramid);
        if (!region) return std::nullopt;
        auto points = mesh_.pointsIn(pyramid, *region);
        if (!points) {
            // Of a face that is small in the frame the detector gives but a rough place, and a better one from closer.
            const auto closer = detector_.nearestFaceIn(pyramid, *region);
            if (closer) points = mesh_.pointsIn(pyramid, *closer);
        }
        if (!points) return std::nullopt;
        return headPose(*points, frame.width, frame.height, geometry_);
    }

    FaceDetector detector_;
    FaceMesh mesh_;
    FaceGeometry geometry_;
};

std::expected<NeuralNetwork, std::string> load(const std::filesystem::path& directory, const FaceModelFile& file) {
    const auto bytes = readFaceModel(directory, file);
    if (!bytes) return std::unexpected(bytes.error());
    const auto why = [&](const std::string& reason) {
        return std::unexpected((directory / file.name).string() + " cannot be used: " + reason);
    };
    const auto model = TfliteModel::parse(std::as_bytes(std::span(*bytes)));
    if (!model) return why(model.error());
    auto network = NeuralNetwork::compile(*model);
    if (!network) return why(network.error());
    return network;
}

}  // namespace

std::expected<FaceFinder, std::string> loadFaceFinder(const std::filesystem::path& modelDirectory,
                                                      const FaceGeometry& geometry) {
    auto detector = load(modelDirectory, detectorModel);
    if (!detector) return std::unexpected(detector.error());
    auto mesh = load(modelDirectory, meshModel);
    if (!mesh) return std::unexpected(mesh.error());
    const auto locator =
        std::make_shared<FaceLocator>(FaceDetector(std::move(*detector)), FaceMesh(std::move(*mesh)), geometry);
    return [locator](const Frame& frame) { return locator->locate(frame); };
}

}  // namespace tarvex::camera
