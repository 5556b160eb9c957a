#pragma once

#include <algorithm>
#include <array>
#include <optional>

#include "platform/camera/vision/image_region.h"
#include "platform/camera/vision/neural_network.h"

namespace tarvex::camera {

/// Finds where in a picture a face is: a short-range detector of the BlazeFace kind.
/// Bazarevsky et al., "BlazeFace: Sub-millisecond Neural Face Detection on Mobile GPUs", 2019.
class FaceDetector {
public:
    /// `network`: that of `detectorModel`.
    explicit FaceDetector(NeuralNetwork network);

    /// The square around the nearest face, upright by its eyes; absent where no face is.
    std::optional<ImageRegion> nearestFace(ImagePyramid& pyramid);

    /// The same for a part of the picture.
    std::optional<ImageRegion> nearestFaceIn(ImagePyramid& pyramid, const ImageRegion& region);

    /// Blackens the network's input.
    void forget() { std::ranges::fill(network_.input(), 0.0F); }

private:
    struct Detection;

    std::optional<Detection> largestFaceIn(ImagePyramid& pyramid, const ImageRegion& region);
    std::optional<Detection> detect(ImagePyramid& pyramid);

    NeuralNetwork network_;
    std::vector<ImagePoint> anchors_;
};

}  // namespace tarvex::camera
