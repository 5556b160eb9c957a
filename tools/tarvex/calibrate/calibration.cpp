#include "calibrate/calibration.h"

#include <algorithm>

#include "counted.h"
#include "platform/glib/calibration_file.h"

namespace tarvex::camera {
namespace {

using platform::Anchor;
using platform::Transform;

constexpr std::size_t fewest = 20;
constexpr double widestSpread = 0.04;  // of the median, between the quartiles: more, and the head moved

double eyeDistance(const Anchor& face, const Transform& eye) {
    return 100 * eyePlace(face, eye).distance();
}

double quantile(std::vector<double> values, double part) {
    const auto place = static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
    std::ranges::nth_element(values, values.begin() + place);
    return values[static_cast<std::size_t>(place)];
}

}  // namespace

std::expected<Readings, std::string> read(FrameSource& source, const FaceFinder& finder, std::chrono::seconds duration,
                                          const std::function<void(const Readings&)>& progress) {
    Readings readings;
    bool sizeChanged = false;
    const auto look = [&](const Frame& frame) {
        sizeChanged = readings.frames > 0 && (frame.width != readings.width || frame.height != readings.height);
        readings.width = frame.width;
        readings.height = frame.height;
        ++readings.frames;
        const auto face = finder(frame);
        if (!face || !face->face) return;
        readings.centimetres.push_back(
            (eyeDistance(*face, face->face->leftEyeTransform) + eyeDistance(*face, face->face->rightEyeTransform)) / 2);
    };
    const auto end = std::chrono::steady_clock::now() + duration;
    while (std::chrono::steady_clock::now() < end) {
        if (const auto came = source.next(std::chrono::milliseconds(100), look); !came)
            return std::unexpected(came.error());
        if (sizeChanged) return std::unexpected("the camera changed the size of its frames");
        progress(readings);
    }
    return readings;
}

std::expected<double, std::string> factorOf(const Readings& readings, double trueCentimetres) {
    if (readings.centimetres.size() < fewest)
        return std::unexpected("a face was seen in " + std::to_string(readings.centimetres.size()) + " of " +
                               tool::counted(readings.frames, "frame") + ": too few to calibrate by");
    const double median = quantile(readings.centimetres, 0.5);
    const double spread = (quantile(readings.centimetres, 0.75) - quantile(readings.centimetres, 0.25)) / median;
    if (spread > widestSpread) return std::unexpected("the readings are too far apart: hold the head still");
    const double factor = trueCentimetres / median;
    if (!platform::canBeFactor(factor))
        return std::unexpected("the camera reads " + std::to_string(median) + " cm: check the distance");
    return factor;
}

}  // namespace tarvex::camera
