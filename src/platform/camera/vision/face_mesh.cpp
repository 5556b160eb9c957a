#include "platform/camera/vision/face_mesh.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace tarvex::camera {
namespace {

constexpr std::size_t inputSize = 192;
constexpr std::size_t coordinates = 3;
constexpr std::size_t rightOuterCorner = 33;
constexpr std::size_t leftOuterCorner = 263;
constexpr float margin = 1.5F;
constexpr ChannelRange zeroToOne{.scale = 1 / 255.0F, .offset = 0};

// A logit: 98 % sure. Some profiles, on which the mesh sees eyes that are not there, stay below; faces lie above.
constexpr float leastPresence = 3.9F;

// The first look sees the face where the detector believes it to be, the second where the first saw it. Most faces are
// then looked at as they lie; another look is taken while the square is still larger, smaller or elsewhere by so much
// of its side.
constexpr int fewestLooks = 2;
constexpr int mostLooks = 5;
constexpr float sameSide = 0.05F;
constexpr float samePlace = 0.02F;

/// The square around the points, with a margin, turned so that the eyes lie level.
ImageRegion squareAround(const FacePoints& points) {
    const ImagePoint right = points[rightOuterCorner];
    const ImagePoint left = points[leftOuterCorner];
    const float angle = std::atan2(left.y - right.y, left.x - right.x);
    const ImageRegion turned{.centre = {}, .side = 1, .angle = angle};
    ImagePoint least{.x = std::numeric_limits<float>::max(), .y = std::numeric_limits<float>::max()};
    ImagePoint most{.x = std::numeric_limits<float>::lowest(), .y = std::numeric_limits<float>::lowest()};
    for (const ImagePoint& point : points) {
        const float along = point.x * std::cos(angle) + point.y * std::sin(angle);
        const float across = point.y * std::cos(angle) - point.x * std::sin(angle);
        least = {.x = std::min(least.x, along), .y = std::min(least.y, across)};
        most = {.x = std::max(most.x, along), .y = std::max(most.y, across)};
    }
    return {.centre = turned.toFrame({.x = (least.x + most.x) / 2 + 0.5F, .y = (least.y + most.y) / 2 + 0.5F}),
            .side = margin * std::max(most.x - least.x, most.y - least.y),
            .angle = angle};
}

bool areNearlyTheSame(const ImageRegion& one, const ImageRegion& other) {
    return std::abs(one.side - other.side) <= sameSide * other.side &&
           std::hypot(one.centre.x - other.centre.x, one.centre.y - other.centre.y) <= samePlace * other.side;
}

}  // namespace

FaceMesh::FaceMesh(NeuralNetwork network) : network_(std::move(network)) {}

std::optional<FacePoints> FaceMesh::pointsIn(ImagePyramid& pyramid, ImageRegion region) {
    for (int looks = 1; looks <= mostLooks; ++looks) {
        const auto seen = look(pyramid, region);
        if (!seen) return std::nullopt;
        const ImageRegion around = squareAround(seen->points);
        if (looks >= fewestLooks && areNearlyTheSame(around, region)) {
            if (seen->presence > leastPresence) return seen->points;
            return std::nullopt;
        }
        region = around;
    }
    return std::nullopt;  // what never comes to rest is no face, or not seen well enough to measure by
}

std::optional<FaceMesh::Look> FaceMesh::look(ImagePyramid& pyramid, const ImageRegion& region) {
    if (!(region.side >= 1)) return std::nullopt;
    sampleRegion(pyramid, region, inputSize, zeroToOne, network_.input());
    if (!network_.run()) return std::nullopt;
    const auto numbers = network_.output(0);
    Look seen{.points = {}, .presence = network_.output(1).front()};
    for (std::size_t place = 0; place < seen.points.size(); ++place) {
        seen.points.at(place) = region.toFrame({.x = numbers[coordinates * place] / static_cast<float>(inputSize),
                                                .y = numbers[coordinates * place + 1] / static_cast<float>(inputSize)});
    }
    return seen;
}

}  // namespace tarvex::camera
