#pragma once

#include <algorithm>
#include <array>
#include <optional>

#include "platform/camera/vision/image_region.h"
#include "platform/camera/vision/neural_network.h"

namespace tarvex::camera {

/// The places of a face's points in a frame, in pixels: 468 of them, numbered as the network has them.
using FacePoints = std::array<ImagePoint, 468>;

/// Places a mesh of points on a face.
/// Kartynnik et al., "Real-time Facial Surface Geometry from Monocular Video on Mobile GPUs", 2019.
class FaceMesh {
public:
    /// `network`: that of `meshModel`.
    explicit FaceMesh(NeuralNetwork network);

    /// The face in `region`; absent when there is none. The region may be rough: the mesh is placed again in the square
    /// around what was found, until that comes to rest.
    std::optional<FacePoints> pointsIn(ImagePyramid& pyramid, ImageRegion region);

    /// Blackens the network's input.
    void forget() { std::ranges::fill(network_.input(), 0.0F); }

private:
    struct Look {
        FacePoints points;
        float presence;  ///< a logit: how sure the network is that this is a face
    };

    std::optional<Look> look(ImagePyramid& pyramid, const ImageRegion& region);

    NeuralNetwork network_;
};

}  // namespace tarvex::camera
