// Accuracy and speed of face tracking, measured on photographs of real faces.
// usage: tarvex_face_accuracy MODEL-DIRECTORY FACE-PLACES PICTURE-DIRECTORY
#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <expected>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "accuracy/error_summary.h"
#include "accuracy/photograph_session.h"
#include "accuracy/posed_head.h"
#include "accuracy/printed_face.h"
#include "accuracy/seen_eyes.h"
#include "benchmark_memory.h"
#include "platform/camera/vision/face_finder.h"
#include "platform/camera/vision/face_models.h"
#include "platform/camera/vision/neural_network.h"
#include "process_figures.h"

namespace tarvex::benchmarks {
namespace {

using camera::FaceFinder;

constexpr camera::FaceGeometry geometry;
constexpr double referenceDepth = 0.5;  // metres
constexpr std::array depths{0.25, 0.3, 0.35, 0.4, 0.45, 0.5, 0.55, 0.6, 0.65, 0.7, 0.75, 0.8};
constexpr std::uint8_t wall = 120;  // the shade around a print

struct Mode {
    int width;
    int height;
};
constexpr Mode modes[] = {{.width = 640, .height = 480}, {.width = 1280, .height = 720}};

/// The camera's frame of a print of natural size, straight ahead and `depth` metres away.
Picture frameOf(const PrintedFace& face, const Mode& mode, double depth, double shiftX = 0, double shiftY = 0) {
    Picture frame(mode.width, mode.height, wall);
    const double eyePixels = geometry.focalLength(mode.width) * geometry.interpupillaryDistance / depth;
    const double side = face.surroundings.width * eyePixels / face.eyeSpacing;
    drawPrint(frame, face.surroundings, mode.width / 2.0 + shiftX, mode.height / 2.0 + shiftY, side);
    return frame;
}

/// The distance of an eye whose print is `depth` metres away. At the reference depth it is seen at `place`, and its
/// distance to the line of sight stays the same. The eye's centre is 7 mm behind the print, which shows its corners.
/// `scale` is the size of the print's face beside the average one.
double trueDistance(double depth, double scale, const FromMiddle& place, double focalLength) {
    constexpr double behind = 0.007;
    const double perPixel = referenceDepth / focalLength * scale;
    return std::hypot(place.right * perPixel, place.down * perPixel, depth * scale + behind);
}

struct PrintErrors {
    ErrorSummary eachEye;
    ErrorSummary bothEyes;  ///< of the mean of the two
    int found = 0;
    int shown = 0;
};

void measurePrint(const FaceFinder& finder, const PrintedFace& face, const Mode& mode, PrintErrors& errors) {
    const auto base = finder(frameOf(face, mode, referenceDepth).frame());
    const double focalLength = geometry.focalLength(mode.width);
    const auto seenAtBase = base ? distancesOf(*base) : BothEyes<double>{};
    const auto places = base ? pixelsOf(*base, focalLength) : BothEyes<FromMiddle>{};
    // The finder's own reading of the reference sets the print's scale: only ratios are measured.
    const double scale = meanOf(seenAtBase) / referenceDepth;
    const auto truthAt = [&](double depth) {
        return BothEyes<double>{.left = trueDistance(depth, scale, places.left, focalLength),
                                .right = trueDistance(depth, scale, places.right, focalLength)};
    };
    const auto trueAtBase = truthAt(referenceDepth);
    for (const double depth : depths) {
        ++errors.shown;
        const auto anchor = depth == referenceDepth ? base : finder(frameOf(face, mode, depth).frame());
        if (!anchor) continue;
        ++errors.found;
        if (!base || depth == referenceDepth) continue;
        const auto seen = distancesOf(*anchor);
        const auto truth = truthAt(depth);
        errors.eachEye.add(seen.left / seenAtBase.left / (truth.left / trueAtBase.left) - 1);
        errors.eachEye.add(seen.right / seenAtBase.right / (truth.right / trueAtBase.right) - 1);
        errors.bothEyes.add(meanOf(seen) / meanOf(seenAtBase) / (meanOf(truth) / meanOf(trueAtBase)) - 1);
    }
}

PrintErrors measurePrints(const FaceFinder& finder, const std::vector<PrintedFace>& faces, const Mode& mode) {
    PrintErrors errors;
    for (const PrintedFace& face : faces)
        measurePrint(finder, face, mode, errors);
    return errors;
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
    return camera::NeuralNetwork::compile(camera::TfliteModel::parse(std::as_bytes(std::span(bytes))).value()).value();
}

/// The mean of the medians of the faces that are found, since one that is hard to see takes longer, beside a bare run
/// of the networks.
void printSpeed(const FaceFinder& finder, const std::filesystem::path& models, const std::vector<PrintedFace>& faces) {
    constexpr int rounds = 20;
    camera::NeuralNetwork detector = bareNetwork(models, camera::detectorModel);
    camera::NeuralNetwork mesh = bareNetwork(models, camera::meshModel);
    const auto run = [](camera::NeuralNetwork& network) {
        if (!network.run()) std::abort();
    };
    for (const Mode& mode : modes) {
        double whole = 0;
        double bare = 0;
        int measured = 0;
        for (const PrintedFace& face : faces) {
            const Picture frame = frameOf(face, mode, referenceDepth);
            if (!finder(frame.frame())) continue;
            ++measured;
            std::vector<double> wholes;
            std::vector<double> bares;
            for (int round = 0; round < rounds; ++round) {
                wholes.push_back(millisecondsOf([&] { static_cast<void>(finder(frame.frame())); }));
                // The runs that most faces need.
                bares.push_back(millisecondsOf([&] { run(detector), run(mesh), run(mesh); }));
            }
            whole += median(wholes);
            bare += median(bares);
        }
        std::printf("| one frame %d×%d | %.2f ms | %.2f ms, %.2f × |\n", mode.width, mode.height, whole / measured,
                    bare / measured, whole / bare);
    }
}

/// The photographs' faces, and their parts without a face.
struct Material {
    std::vector<Picture> photographs;
    std::vector<PrintedFace> faces;     ///< that show both eyes
    std::vector<PrintedFace> profiles;  ///< that hide one
    std::vector<camera::Frame> faceless;

    static std::expected<Material, std::string> load(const std::filesystem::path& facePlaces,
                                                     const std::filesystem::path& pictures) {
        const auto marked = readMarkedFaces(facePlaces);
        if (!marked) return std::unexpected(marked.error());
        Material material;
        material.photographs.reserve(marked->size());  // the parts look into them
        for (const auto& [name, places] : *marked) {
            auto photograph = Picture::load(pictures / name);
            if (!photograph) return std::unexpected(photograph.error());
            const Picture& kept = material.photographs.emplace_back(std::move(*photograph));
            auto faces = printedFaces(kept, name, places);
            if (!faces) return std::unexpected(faces.error());
            for (PrintedFace& face : *faces)
                (face.inProfile ? material.profiles : material.faces).push_back(std::move(face));
            std::ranges::move(partsWithoutFaces(kept, places), std::back_inserter(material.faceless));
        }
        return material;
    }
};

int measure(const std::filesystem::path& models, const std::filesystem::path& facePlaces,
            const std::filesystem::path& pictures) {
    constexpr std::chrono::seconds watched(20);
    const auto photograph = pictures / "sample5.jpg";
    // In a process that has done nothing yet, and that does nothing else.
    const double memoryWithSource = figureOfChild([&] {
        const auto session = photographSession(models, photograph, std::chrono::seconds(0));
        return session ? session->openMemory : -1;
    });
    const auto memoryBefore = residentMemory();
    std::expected<FaceFinder, std::string> finder;
    std::vector<double> loading;
    const auto load = [&] { finder = camera::loadFaceFinder(models, geometry); };
    loading.push_back(millisecondsOf(load));
    if (!finder) {
        std::fprintf(stderr, "%s\n", finder.error().c_str());
        return 1;
    }
    const auto memoryLoaded = residentMemory();
    const auto material = Material::load(facePlaces, pictures);
    if (!material) {
        std::fprintf(stderr, "%s\n", material.error().c_str());
        return 1;
    }
    const auto& faces = material->faces;
    const Picture firstFrame = frameOf(faces.front(), modes[0], referenceDepth);
    const auto memoryBeforeLook = residentMemory();
    static_cast<void>((*finder)(firstFrame.frame()));
    const auto memoryLooked = memoryLoaded + (residentMemory() - memoryBeforeLook);
    for (int round = 0; round < 9; ++round)
        loading.push_back(millisecondsOf(load));
    std::vector<camera::Frame> faceless = material->faceless;
    std::mt19937 random(20251122);
    std::vector<Picture> noise(40, Picture(320, 320, 0));
    for (Picture& picture : noise) {
        std::ranges::generate(picture.pixels, [&] { return static_cast<std::uint8_t>(random()); });
        faceless.push_back(picture.frame());
    }

    std::printf("%zu faces that show both eyes and %zu in profile, cut out of %zu photographs\n\n", faces.size(),
                material->profiles.size(), material->photographs.size());
    std::printf("| Distance ratio | mean | max | found |\n|---|---|---|---|\n");
    for (const Mode& mode : modes) {
        const PrintErrors errors = measurePrints(*finder, faces, mode);
        std::printf("| a print moved 25–80 cm, %d×%d, each eye | %.2f %% | %.2f %% | %d of %d |\n", mode.width,
                    mode.height, errors.eachEye.mean(), errors.eachEye.max(), errors.found, errors.shown);
        std::printf("| the same, mean of both eyes | %.2f %% | %.2f %% | |\n", errors.bothEyes.mean(),
                    errors.bothEyes.max());
        const PrintErrors ofProfiles = measurePrints(*finder, material->profiles, mode);
        std::printf("| the same, in profile, which hides an eye | | | %d of %d |\n", ofProfiles.found,
                    ofProfiles.shown);
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

    std::printf("| Speed, one thread | whole | detector once, mesh twice |\n|---|---|---|\n");
    printSpeed(*finder, models, faces);

    const auto megabytes = [](double bytes) { return bytes / 1e6; };
    const auto megabytesSince = [&](std::int64_t memory) {
        return megabytes(static_cast<double>(memory - memoryBefore));
    };
    std::printf("\n| Cost | |\n|---|---|\n");
    std::printf("| loading the networks, the first time / again | %.0f / %.0f ms |\n", loading.front(),
                median(loading));
    std::printf("| memory, frames excluded: loaded / after the first look | %.1f / %.1f MB |\n",
                megabytesSince(memoryLoaded), megabytesSince(memoryLooked));
    std::printf("| memory with a photograph as the camera, open | %.1f MB |\n", megabytes(memoryWithSource));
    const auto session = photographSession(models, photograph, watched);
    if (!session || memoryWithSource < 0) {
        std::fprintf(stderr, "no face was measured in %s\n", photograph.c_str());
        return 1;
    }
    std::printf("| paused for %lld s: voluntary context switches / processor time | %.0f / %.1f ms |\n",
                static_cast<long long>(watched.count()), session->pausedSwitches, session->pausedProcessor);
    return 0;
}

}  // namespace
}  // namespace tarvex::benchmarks

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s MODEL-DIRECTORY FACE-PLACES PICTURE-DIRECTORY\n", argv[0]);
        return 2;
    }
    return tarvex::benchmarks::measure(argv[1], argv[2], argv[3]);
}
