#include "platform/camera/vision/face_detector.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace tarvex::camera {

/// A face in a region: the box and the eyes in the region's own coordinates, 0 to 1.
struct FaceDetector::Detection {
    ImageRegion region;
    float score = 0;
    ImagePoint centre;
    float width = 0;
    float height = 0;
    ImagePoint rightEye;
    ImagePoint leftEye;

    float side() const { return std::max(width, height) * region.side; }

    /// The square around the face, with a margin, turned so that the eyes lie level.
    ImageRegion square() const {
        constexpr float margin = 1.5F;
        const ImagePoint right = region.toFrame(rightEye);
        const ImagePoint left = region.toFrame(leftEye);
        return {.centre = region.toFrame(centre),
                .side = margin * side(),
                .angle = std::atan2(left.y - right.y, left.x - right.x)};
    }
};

namespace {

constexpr std::size_t inputSize = 128;
constexpr std::size_t numbersPerAnchor = 16;
constexpr float leastScore = 0.5F;
constexpr float sameFace = 0.3F;  // overlap from which two boxes mean one face
constexpr ChannelRange minusOneToOne{.scale = 1 / 127.5F, .offset = -1};

float sigmoid(float logit) {
    return 1 / (1 + std::exp(-std::clamp(logit, -80.0F, 80.0F)));
}

/// The places that the network's numbers are relative to: two on each cell of a 16×16 grid, six on each of an 8×8 one.
std::vector<ImagePoint> anchorPlaces() {
    struct Grid {
        int cells;
        int anchorsPerCell;
    };
    std::vector<ImagePoint> places;
    for (const Grid grid : {Grid{.cells = 16, .anchorsPerCell = 2}, Grid{.cells = 8, .anchorsPerCell = 6}}) {
        const auto cells = static_cast<float>(grid.cells);
        for (int row = 0; row < grid.cells; ++row) {
            for (int column = 0; column < grid.cells; ++column) {
                const ImagePoint place{.x = (static_cast<float>(column) + 0.5F) / cells,
                                       .y = (static_cast<float>(row) + 0.5F) / cells};
                places.insert(places.end(), static_cast<std::size_t>(grid.anchorsPerCell), place);
            }
        }
    }
    return places;
}

template <typename Box>
float overlap(const Box& a, const Box& b) {
    const auto common = [](float centreA, float sizeA, float centreB, float sizeB) {
        return std::min(centreA + sizeA / 2, centreB + sizeB / 2) - std::max(centreA - sizeA / 2, centreB - sizeB / 2);
    };
    const float width = common(a.centre.x, a.width, b.centre.x, b.width);
    const float height = common(a.centre.y, a.height, b.centre.y, b.height);
    if (width <= 0 || height <= 0) return 0;
    return width * height / (a.width * a.height + b.width * b.height - width * height);
}

/// The mean of what several anchors say of one face, the surer ones counting for more.
template <typename Box>
Box blended(std::span<const Box> boxes) {
    Box mean = boxes.front();
    mean.centre = mean.rightEye = mean.leftEye = {};
    mean.width = mean.height = 0;
    float sum = 0;
    for (const Box& box : boxes)
        sum += box.score;
    const auto addPoint = [](ImagePoint& to, ImagePoint point, float weight) {
        to.x += weight * point.x;
        to.y += weight * point.y;
    };
    for (const Box& box : boxes) {
        const float weight = box.score / sum;
        addPoint(mean.centre, box.centre, weight);
        addPoint(mean.rightEye, box.rightEye, weight);
        addPoint(mean.leftEye, box.leftEye, weight);
        mean.width += weight * box.width;
        mean.height += weight * box.height;
    }
    return mean;
}

/// The largest of the faces that the boxes mean; in one picture, the largest is the nearest.
template <typename Box>
std::optional<Box> largestFace(std::vector<Box> boxes) {
    std::optional<Box> largest;
    while (!boxes.empty()) {
        const Box best = *std::ranges::max_element(boxes, {}, &Box::score);
        const auto others =
            std::ranges::partition(boxes, [&](const Box& box) { return overlap(best, box) > sameFace; });
        const auto same = static_cast<std::size_t>(others.begin() - boxes.begin());
        if (same == 0) break;  // a box without an area
        const Box face = blended(std::span<const Box>(boxes).first(same));
        if (!largest || face.side() > largest->side()) largest = face;
        boxes.erase(boxes.begin(), others.begin());
    }
    return largest;
}

/// Squares that cover the frame side by side, `count` along its width for each of `rows`.
std::vector<ImageRegion> squaresOver(const Frame& frame, float side, int columns, int rows) {
    const auto place = [](int index, int count, float length, float square) {
        if (count == 1) return length / 2;
        return square / 2 + (length - square) * static_cast<float>(index) / static_cast<float>(count - 1);
    };
    std::vector<ImageRegion> squares;
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < columns; ++column) {
            squares.push_back({.centre = {.x = place(column, columns, static_cast<float>(frame.width), side),
                                          .y = place(row, rows, static_cast<float>(frame.height), side)},
                               .side = side});
        }
    }
    return squares;
}

}  // namespace

FaceDetector::FaceDetector(NeuralNetwork network) : network_(std::move(network)), anchors_(anchorPlaces()) {}

std::optional<ImageRegion> FaceDetector::nearestFace(ImagePyramid& pyramid) {
    return detect(pyramid).transform(&Detection::square);
}

std::optional<ImageRegion> FaceDetector::nearestFaceIn(ImagePyramid& pyramid, const ImageRegion& region) {
    return largestFaceIn(pyramid, region).transform(&Detection::square);
}

std::optional<FaceDetector::Detection> FaceDetector::detect(ImagePyramid& pyramid) {
    const Frame& frame = pyramid.frame();
    const auto width = static_cast<float>(frame.width);
    const auto height = static_cast<float>(frame.height);
    const ImageRegion whole{.centre = {.x = width / 2, .y = height / 2}, .side = std::max(width, height)};
    if (auto found = largestFaceIn(pyramid, whole)) return found;
    // A face that is small in the frame is large in one of these squares.
    const float shorter = std::min(width, height);
    const bool upright = height > width;
    for (const auto& squares : {squaresOver(frame, shorter, upright ? 1 : 3, upright ? 3 : 1),
                                squaresOver(frame, 0.6F * shorter, upright ? 3 : 4, upright ? 4 : 3)}) {
        std::optional<Detection> largest;
        for (const ImageRegion& square : squares) {
            const auto found = largestFaceIn(pyramid, square);
            if (found && (!largest || found->side() > largest->side())) largest = found;
        }
        if (largest) return largest;
    }
    return std::nullopt;
}

std::optional<FaceDetector::Detection> FaceDetector::largestFaceIn(ImagePyramid& pyramid, const ImageRegion& region) {
    sampleRegion(pyramid, region, inputSize, minusOneToOne, network_.input());
    if (!network_.run()) return std::nullopt;
    const auto numbers = network_.output(0);
    const auto logits = network_.output(1);
    std::vector<Detection> detections;
    for (std::size_t anchor = 0; anchor < anchors_.size(); ++anchor) {
        const float score = sigmoid(logits[anchor]);
        if (!(score >= leastScore)) continue;
        const auto own = numbers.subspan(anchor * numbersPerAnchor, numbersPerAnchor);
        const auto point = [&](std::size_t first) {
            return ImagePoint{.x = own[first] / static_cast<float>(inputSize) + anchors_[anchor].x,
                              .y = own[first + 1] / static_cast<float>(inputSize) + anchors_[anchor].y};
        };
        detections.push_back({.region = region,
                              .score = score,
                              .centre = point(0),
                              .width = own[2] / static_cast<float>(inputSize),
                              .height = own[3] / static_cast<float>(inputSize),
                              .rightEye = point(4),
                              .leftEye = point(6)});
    }
    return largestFace(std::move(detections));
}

}  // namespace tarvex::camera
