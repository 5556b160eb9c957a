#pragma once

#include <optional>
#include <vector>

#include "accuracy/picture.h"
#include "platform/camera/vision/face_finder.h"

namespace tarvex::benchmarks {

/// A face of a photograph with what is around it, and how large it is.
struct PrintedFace {
    camera::Frame surroundings;  ///< a square; the face is in its middle
    double eyeSpacing = 0;       ///< pixels between the eyes' centres
};

/// The eyes' distances from the camera, in metres.
struct EyeDistances {
    double left = 0;
    double right = 0;
};
EyeDistances distancesOf(const platform::Anchor& face);

/// Where in the frame a point between the eyes lies, and how many pixels they are apart.
struct FacePlace {
    double x = 0;
    double y = 0;
    double eyeSpacing = 0;
};
FacePlace placeOf(const platform::Anchor& face, const camera::Frame& frame, double horizontalFieldOfView);

/// Every face that the finder meets in squares of several sizes laid over the photograph.
std::vector<FacePlace> facesIn(const Picture& photograph, const camera::FaceFinder& finder);

/// The faces that are large enough and far enough from the edge to be cut out.
std::vector<PrintedFace> printedFaces(const Picture& photograph, const std::vector<FacePlace>& faces);

/// Squares of the photograph that hold none of the faces.
std::vector<camera::Frame> partsWithoutFaces(const Picture& photograph, const std::vector<FacePlace>& faces);

}  // namespace tarvex::benchmarks
