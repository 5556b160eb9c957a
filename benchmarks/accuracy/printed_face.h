#pragma once

#include <expected>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "accuracy/picture.h"
#include "platform/camera/vision/face_finder.h"

namespace tarvex::benchmarks {

/// The place of a face in a photograph, in pixels.
struct FacePlace {
    double x = 0;  ///< of the point between the eyes
    double y = 0;
    double eyeSpacing = 0;   ///< between the eyes' centres, as if the face were turned to the camera
    bool inProfile = false;  ///< one eye is hidden
};

/// The faces of each photograph as people marked them, by the photograph's file name; one sentence when the list cannot
/// be read.
using MarkedFaces = std::map<std::string, std::vector<FacePlace>>;
std::expected<MarkedFaces, std::string> readMarkedFaces(const std::filesystem::path& list);

/// A face of a photograph with what is around it, and how large it is.
struct PrintedFace {
    camera::Frame surroundings;  ///< a square; the face is in its middle
    double eyeSpacing = 0;       ///< pixels, as in its place
    bool inProfile = false;      ///< as in its place
    std::string name;            ///< for a person
};

/// The faces with their surroundings; one sentence on one whose surroundings the photograph does not hold.
std::expected<std::vector<PrintedFace>, std::string> printedFaces(const Picture& photograph, const std::string& name,
                                                                  const std::vector<FacePlace>& faces);

/// Squares of the photograph that hold none of the faces.
std::vector<camera::Frame> partsWithoutFaces(const Picture& photograph, const std::vector<FacePlace>& faces);

}  // namespace tarvex::benchmarks
