// How right and how fast face tracking is, measured on photographs of real faces.
// usage: tarvex_face_accuracy MODEL-DIRECTORY PICTURE...
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "accuracy/error_summary.h"
#include "accuracy/posed_head.h"
#include "accuracy/printed_face.h"
#include "benchmark_memory.h"
#include "platform/camera/vision/face_locator.h"
#include "platform/camera/vision/face_models.h"
#include "platform/camera/vision/neural_network.h"

namespace tarvex::benchmarks {
namespace {

using camera::FaceFinder;

constexpr camera::FaceGeometry geometry;
constexpr double referenceDepth = 0.5;  // metres
constexpr std::uint8_t wall = 120;      // the shade around a print

struct Mode {
    int width;
    int height;
};
constexpr Mode modes[] = {{.width = 640, .height = 480}, {.width = 1280, .height = 720}};

double focalLength(const Mode& mode) {
    return mode.width / 2.0 / std::tan(geometry.horizontalFieldOfView / 2 * std::acos(-1.0) / 180);
}

/// What the camera sees of a print of natural size, straight ahead and `depth` metres away.
Picture frameOf(const PrintedFace& face, const Mode& mode, double depth, double shiftX = 0, double shiftY = 0) {
    Picture frame(mode.width, mode.height, wall);
    const double eyePixels = focalLength(mode) * geometry.interpupillaryDistance / depth;
    const double side = face.surroundings.width * eyePixels / face.eyeSpacing;
    drawPrint(frame, face.surroundings, mode.width / 2.0 + shiftX, mode.height / 2.0 + shiftY, side);
    return frame;
}

/// How far an eye of a print is: beside the line of sight, and 7 mm behind the print that its corners are on. `side` is
/// 1 for the left eye and -1 for the right one; `scale` is how large the print's face is beside the average one.
double trueDistance(double depth, double scale, const FacePlace& place, const Mode& mode, double side) {
    constexpr double behind = 0.007;
    const double perPixel = referenceDepth / focalLength(mode) * scale;
    const double x = (place.x - mode.width / 2.0) * perPixel + side * geometry.interpupillaryDistance * scale / 2;
    const double y = (place.y - mode.height / 2.0) * perPixel;
    return std::hypot(x, y, depth * scale + behind);
}

struct PrintErrors {
    ErrorSummary eachEye;
    ErrorSummary bothEyes;  ///< of the mean of the two
    int found = 0;
    int shown = 0;
};

void measurePrint(const FaceFinder& finder, const PrintedFace& face, const Mode& mode, PrintErrors& errors) {
    const Picture reference = frameOf(face, mode, referenceDepth);
    const auto base = finder(reference.frame());
    ++errors.shown;
    if (!base) return;
    ++errors.found;
    const EyeDistances baseSeen = distancesOf(*base);
    const FacePlace place = placeOf(*base, reference.frame(), geometry.horizontalFieldOfView);
    // The finder's own reading of the reference sets the print's scale: only ratios are measured.
    const double scale = (baseSeen.left + baseSeen.right) / 2 / referenceDepth;
    const auto trueDistances = [&](double depth) {
        return EyeDistances{.left = trueDistance(depth, scale, place, mode, 1),
                            .right = trueDistance(depth, scale, place, mode, -1)};
    };
    const EyeDistances baseTruth = trueDistances(referenceDepth);
    for (int centimetres = 25; centimetres <= 80; centimetres += 5) {
        const double depth = centimetres / 100.0;
        if (depth == referenceDepth) continue;
        ++errors.shown;
        const Picture frame = frameOf(face, mode, depth);
        const auto anchor = finder(frame.frame());
        if (!anchor) continue;
        ++errors.found;
        const EyeDistances seen = distancesOf(*anchor);
        const EyeDistances truth = trueDistances(depth);
        errors.eachEye.add(seen.left / baseSeen.left / (truth.left / baseTruth.left) - 1);
        errors.eachEye.add(seen.right / baseSeen.right / (truth.right / baseTruth.right) - 1);
        errors.bothEyes.add((seen.left + seen.right) / (baseSeen.left + baseSeen.right) /
                                ((truth.left + truth.right) / (baseTruth.left + baseTruth.right)) -
                            1);
    }
}

/// A face that stands still before a camera that does not quite: parts of a pixel of movement, noise on every value.
ErrorSummary jitter(const FaceFinder& finder, const std::vector<PrintedFace>& faces, std::mt19937& random) {
    constexpr int frames = 20;
    constexpr double noise = 3;  // of 255
    std::uniform_real_distribution<double> shift(-0.5, 0.5);
    std::normal_distribution<double> grain(0, noise);
    ErrorSummary summary;
    for (const PrintedFace& face : faces) {
        std::vector<double> distances;
        for (int frame = 0; frame < frames; ++frame) {
            Picture picture = frameOf(face, modes[0], referenceDepth, shift(random), shift(random));
            for (std::uint8_t& value : picture.pixels)
                value = static_cast<std::uint8_t>(std::clamp(value + grain(random), 0.0, 255.0));
            if (const auto seen = finder(picture.frame())) distances.push_back(distancesOf(*seen).left);
        }
        if (distances.size() < 2) continue;
        double mean = 0;
        for (const double distance : distances)
            mean += distance / static_cast<double>(distances.size());
        double square = 0;
        for (const double distance : distances)
            square += (distance - mean) * (distance - mean) / static_cast<double>(distances.size() - 1);
        summary.add(std::sqrt(square) / mean);
    }
    return summary;
}

double millisecondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::ranges::nth_element(values, values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2));
    return values[values.size() / 2];
}

camera::NeuralNetwork bareNetwork(const std::filesystem::path& directory, const camera::FaceModelFile& file) {
    const auto bytes = camera::readFaceModel(directory, file).value();
    return camera::NeuralNetwork::compile(camera::TfliteModel::parse(bytes).value()).value();
}

void printSpeed(const FaceFinder& finder, const std::filesystem::path& models, const PrintedFace& face) {
    constexpr int rounds = 200;
    camera::NeuralNetwork detector = bareNetwork(models, camera::detectorModel);
    camera::NeuralNetwork mesh = bareNetwork(models, camera::meshModel);
    const auto run = [](camera::NeuralNetwork& network) {
        if (!network.run()) std::abort();
    };
    for (const Mode& mode : modes) {
        const Picture frame = frameOf(face, mode, referenceDepth);
        std::vector<double> whole;
        std::vector<double> bare;
        for (int round = 0; round < rounds; ++round) {
            whole.push_back(millisecondsOf([&] { static_cast<void>(finder(frame.frame())); }));
            // Each network looks twice: at what the camera sees, and again closer.
            bare.push_back(millisecondsOf([&] { run(detector), run(mesh), run(detector), run(mesh); }));
        }
        std::printf("| one frame %d×%d | %.2f ms | %.2f ms | %.2f × |\n", mode.width, mode.height, median(whole),
                    median(bare), median(whole) / median(bare));
    }
}

int measure(const std::filesystem::path& models, std::span<char*> picturePaths) {
    const auto memoryBefore = residentMemory();
    std::expected<FaceFinder, std::string> finder;
    std::vector<double> loading;
    const auto load = [&] { finder = camera::loadFaceFinder(models, geometry); };
    loading.push_back(millisecondsOf(load));
    if (!finder) {
        std::fprintf(stderr, "%s\n", finder.error().c_str());
        return 1;
    }
    const auto memoryAfter = residentMemory();
    for (int round = 0; round < 9; ++round)
        loading.push_back(millisecondsOf(load));

    std::vector<Picture> photographs;
    std::vector<PrintedFace> faces;
    std::vector<camera::Frame> faceless;
    photographs.reserve(picturePaths.size());  // the parts look into them
    for (const char* path : picturePaths) {
        auto photograph = Picture::load(path);
        if (!photograph) {
            std::fprintf(stderr, "%s\n", photograph.error().c_str());
            return 1;
        }
        const Picture& kept = photographs.emplace_back(std::move(*photograph));
        const auto places = facesIn(kept, *finder);
        std::ranges::move(printedFaces(kept, places), std::back_inserter(faces));
        std::ranges::move(partsWithoutFaces(kept, places), std::back_inserter(faceless));
    }

    std::mt19937 random(20251122);
    std::vector<Picture> noise(40, Picture(320, 320, 0));
    for (Picture& picture : noise) {
        std::ranges::generate(picture.pixels, [&] { return static_cast<std::uint8_t>(random()); });
        faceless.push_back(picture.frame());
    }

    std::printf("%zu faces cut out of %zu photographs\n\n", faces.size(), photographs.size());
    std::printf("| Distance ratio | mean | max | found |\n|---|---|---|---|\n");
    for (const Mode& mode : modes) {
        PrintErrors errors;
        for (const PrintedFace& face : faces)
            measurePrint(*finder, face, mode, errors);
        std::printf("| a print moved 25–80 cm, %d×%d, each eye | %.2f %% | %.2f %% | %d of %d |\n", mode.width,
                    mode.height, errors.eachEye.mean(), errors.eachEye.max(), errors.found, errors.shown);
        std::printf("| the same, mean of both eyes | %.2f %% | %.2f %% | |\n", errors.bothEyes.mean(),
                    errors.bothEyes.max());
    }
    const ErrorSummary posed = posedHeads(random);
    std::printf("| posed heads, the solver alone | %.2f %% | %.2f %% | %d eyes |\n", posed.mean(), posed.max(),
                posed.count());
    const ErrorSummary steady = jitter(*finder, faces, random);
    std::printf("| jitter of a face that stands still | %.2f %% | %.2f %% | %d faces |\n\n", steady.mean(),
                steady.max(), steady.count());
    const auto falseFinds =
        std::ranges::count_if(faceless, [&](const camera::Frame& part) { return (*finder)(part).has_value(); });
    std::printf("False finds: %td in %zu pictures without a face\n\n", falseFinds, faceless.size());

    std::printf("| Speed | whole | the networks alone | ratio |\n|---|---|---|---|\n");
    if (!faces.empty()) printSpeed(*finder, models, faces.front());
    std::printf("\nLoading the networks: %.0f ms (the first time %.0f ms); memory: %.1f MB\n", median(loading),
                loading.front(), static_cast<double>(memoryAfter - memoryBefore) / 1e6);
    return faces.empty() ? 1 : 0;
}

}  // namespace
}  // namespace tarvex::benchmarks

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s MODEL-DIRECTORY PICTURE...\n", argv[0]);
        return 2;
    }
    return tarvex::benchmarks::measure(argv[1], std::span(argv, static_cast<std::size_t>(argc)).subspan(2));
}
