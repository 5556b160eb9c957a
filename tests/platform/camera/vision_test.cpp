#include <fcntl.h>
#include <unistd.h>

#include <Eigen/Dense>
#include <random>

#include "platform/camera/capture/frame_source.h"
#include "platform/camera/vision/face_finder.h"
#include "platform/camera/vision/face_models.h"
#include "platform/camera/vision/head_pose.h"
#include "platform/camera/vision/neural_network.h"
#include "prelude.h"

namespace tarvex::camera {

namespace {

namespace fs = std::filesystem;
using Eigen::Vector3d;

const fs::path models = TARVEX_FACE_MODELS;
const fs::path photographs = TARVEX_TEST_PICTURES;

constexpr int width = 640;
constexpr int height = 480;

/// Shows the photograph to `look` once.
void show(const fs::path& photograph, const std::function<void(const Frame&)>& look) {
    const auto source = openFrameSource(Picture{.path = photograph}).value();
    for (int tries = 0; tries < 100; ++tries)
        if (source->next(100ms, look).value()) return;
    FAIL() << "no frame of " << photograph;
}

double depthOf(const platform::Anchor& face) {
    return -face.transform.columns[14];
}

class Finder : public ::testing::Test {
protected:
    const FaceFinder finder = loadFaceFinder(models, {}).value();
};

/// True when the process's memory, apart from files, holds a row of such numbers.
bool memoryHolds(float number) {
    std::ifstream maps("/proc/self/maps");
    const int memory = ::open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    bool found = false;
    for (std::string line; std::getline(maps, line);) {
        std::istringstream words(line);
        std::uintptr_t begin = 0;
        std::uintptr_t end = 0;
        char dash = 0;
        std::string rights, offset, device, node, name;
        words >> std::hex >> begin >> dash >> end >> rights >> offset >> device >> node >> name;
        if (!rights.starts_with("rw") || end - begin > (64 << 20) || (!name.empty() && name != "[heap]")) continue;
        std::vector<float> numbers((end - begin) / sizeof(float));
        if (::pread(memory, numbers.data(), end - begin, static_cast<off_t>(begin)) <= 0) continue;
        found = found || !std::ranges::search_n(numbers, 128, number).empty();
        std::ranges::fill(numbers, 0.0F);  // or the next round would find this one's copy
    }
    ::close(memory);
    return found;
}

struct Head {
    double yaw = 0;  // degrees, to the user's left
    double pitch = 0;
    double roll = 0;
    Vector3d place{0, 0, -0.5};

    Vector3d placed(const Vector3d& point) const {
        const auto about = [](double degrees, const Vector3d& axis) {
            return Eigen::AngleAxisd(degrees * std::numbers::pi / 180, axis);
        };
        return about(yaw, Vector3d::UnitY()) * about(pitch, Vector3d::UnitX()) * about(roll, Vector3d::UnitZ()) *
                   point +
               place;
    }
};

/// The mean face's points as a camera of that field of view sees them.
FacePoints seen(const Head& head, double fieldOfView = 63) {
    const double focalLength = width / 2.0 / std::tan(fieldOfView * std::numbers::pi / 360);
    FacePoints points{};
    for (const CanonicalPoint& point : canonicalFace) {
        const Vector3d world = head.placed(Vector3d(point.x, point.y, point.z) / 100);
        points.at(point.meshIndex) = {.x = static_cast<float>(width / 2.0 - focalLength * world.x() / world.z()),
                                      .y = static_cast<float>(height / 2.0 + focalLength * world.y() / world.z())};
    }
    return points;
}

}  // namespace

TEST_F(Finder, FindsAFaceInEveryPhotographAndReadsItNearerInANarrowerFrame) {
    for (int number = 1; number <= 6; ++number) {
        SCOPED_TRACE(number);
        show(photographs / ("sample" + std::to_string(number) + ".jpg"), [&](const Frame& frame) {
            const auto face = finder(frame);
            ASSERT_TRUE(face);
            EXPECT_GT(depthOf(*face), 0.1);
            EXPECT_LT(depthOf(*face), 5);
            if (number == 4) return;  // two faces as large as each other: which one is nearest may change
            // The frame's middle nine tenths: the same pixels cover more of the field of view.
            Frame middle = frame;
            middle.width = frame.width * 9 / 10;
            middle.pixels = frame.pixels.subspan(static_cast<std::size_t>(frame.width / 20) * 3);
            const auto nearer = finder(middle);
            ASSERT_TRUE(nearer);
            EXPECT_NEAR(depthOf(*nearer) / depthOf(*face), 0.9, 0.05);
        });
    }
}

TEST_F(Finder, FindsNothingWhereNothingIs) {
    std::mt19937 random(randomSeed(1));
    for (const auto& [columns, rows] : {std::pair{640, 480}, {1, 1}, {16, 16}, {17, 900}, {900, 17}, {0, 0}}) {
        SCOPED_TRACE(::testing::Message() << columns << "×" << rows);
        std::vector<std::uint8_t> pixels(static_cast<std::size_t>(columns * rows) * 3, 128);
        const Frame frame{
            .width = columns, .height = rows, .stride = static_cast<std::size_t>(columns) * 3, .pixels = pixels};
        EXPECT_FALSE(finder(frame));
        std::ranges::generate(pixels, [&] { return static_cast<std::uint8_t>(random()); });
        EXPECT_FALSE(finder(frame));
    }
}

TEST_F(Finder, LeavesNothingOfAFrameInTheNetworksInput) {
    constexpr std::uint8_t shade = 77;
    constexpr float shown = shade / 127.5F - 1;  // as the detector's network has it
    const std::vector<std::uint8_t> pixels(width * height * 3, shade);
    EXPECT_FALSE(finder({.width = width, .height = height, .stride = width * 3, .pixels = pixels}));
    EXPECT_FALSE(memoryHolds(shown));
    const std::vector<float> row(256, shown);
    EXPECT_TRUE(memoryHolds(row.front())) << "the search finds a row that is there";
}

TEST(FaceModels, AreRefusedWhenAbsentTruncatedOrAltered) {
    const TemporaryDirectory directory;
    const fs::path detector = directory.path() / detectorModel.name;
    const auto refusal = [&] { return loadFaceFinder(directory.path(), {}).error(); };
    EXPECT_TRUE(faceModelsArePresent(models));
    EXPECT_FALSE(faceModelsArePresent(directory.path()));
    EXPECT_THAT(refusal(), HasSubstr("cannot be read"));
    fs::copy_file(models / meshModel.name, directory.path() / meshModel.name);
    fs::copy_file(models / detectorModel.name, detector);
    ASSERT_TRUE(loadFaceFinder(directory.path(), {}));
    fs::resize_file(detector, fs::file_size(detector) - 1);
    EXPECT_THAT(refusal(), HasSubstr("is not the model"));
    fs::copy_file(models / detectorModel.name, detector, fs::copy_options::overwrite_existing);
    std::fstream(detector, std::ios::in | std::ios::out | std::ios::binary).seekp(100'000).put('x');
    EXPECT_THAT(refusal(), HasSubstr("is not the model"));
}

TEST(TfliteModel, IsNotReadFromAFileThatWasCut) {
    const std::string file = readFaceModel(models, detectorModel).value();
    for (std::size_t length = 0; length < file.size(); length += file.size() / 50)
        EXPECT_FALSE(TfliteModel::parse(std::as_bytes(std::span(file).first(length)))) << length;
}

TEST(NeuralNetwork, RefusesAConcatenationInsideTheNetworkAndComputesOneAtItsEnd) {
    using Kind = TfliteModel::Kind;
    TfliteModel model;
    for (const std::size_t rows : std::array<std::size_t, 5>{2, 2, 2, 4, 4})
        model.tensors.emplace_back().shape = {1, rows, 2, 1};
    const auto append = [&](Kind kind, std::vector<std::size_t> inputs, std::size_t output) {
        model.operators.push_back(
            {.kind = kind, .inputs = std::move(inputs), .output = output, .window = {}, .axis = 1});
    };
    append(Kind::relu, {0}, 1);
    append(Kind::relu, {0}, 2);
    append(Kind::concatenation, {1, 2}, 3);
    model.outputs = {3};
    auto network = NeuralNetwork::compile(model).value();
    std::ranges::copy(std::array{-1.0F, 2.0F, 3.0F, 4.0F}, network.input().begin());
    ASSERT_TRUE(network.run());
    const auto output = network.output(0);
    EXPECT_THAT(std::vector(output.begin(), output.end()), ElementsAre(0, 2, 3, 4, 0, 2, 3, 4));
    append(Kind::relu, {3}, 4);
    model.outputs.push_back(4);
    EXPECT_THAT(NeuralNetwork::compile(model).error(), HasSubstr("operator 2 cannot be computed"));
}

TEST(HeadPose, PlacesBothEyesOfATurnedHeadToAMillimetre) {
    const auto [x, y, z] = canonicalLeftEye;
    for (const Head& head : {Head{}, Head{.yaw = 30}, Head{.yaw = -25, .pitch = 15}, Head{.pitch = -20, .roll = 40},
                             Head{.roll = -90}, Head{.place = {0.1, -0.05, -0.25}}, Head{.place = {-0.2, 0.1, -0.8}}}) {
        SCOPED_TRACE(::testing::Message() << "yaw " << head.yaw << " pitch " << head.pitch << " roll " << head.roll);
        const auto face = headPose(seen(head), width, height, {.interpupillaryDistance = 0.06302});
        ASSERT_TRUE(face);
        const auto error = [&](const platform::Transform& eye, const Vector3d& inFace) {
            const EyePlace found = eyePlace(*face, eye);
            return (Vector3d(found.x, found.y, found.z) - head.placed(inFace)).norm();
        };
        EXPECT_LT(error(face->face->leftEyeTransform, {x, y, z}), 0.001);
        EXPECT_LT(error(face->face->rightEyeTransform, {-x, y, z}), 0.001);
    }
}

TEST(HeadPose, ScalesWithTheEyeSpacingAndWithTheFieldOfView) {
    const auto depth = [](const FaceGeometry& geometry) {
        return depthOf(headPose(seen({}, geometry.horizontalFieldOfView), width, height, geometry).value());
    };
    EXPECT_NEAR(depth({.interpupillaryDistance = 2 * 0.06302}), 2 * depth({.interpupillaryDistance = 0.06302}), 1e-3);
    EXPECT_NEAR(depth({.horizontalFieldOfView = 40}), depth({}), 1e-3);
}

TEST(HeadPose, RefusesPointsThatAreNoRigidHeadBeforeTheCamera) {
    FacePoints scattered = seen({});
    for (std::size_t place = 0; place < canonicalFace.size(); place += 2)
        scattered.at(canonicalFace.at(place).meshIndex).y += 25;
    FacePoints notNumbers = seen({});
    notNumbers.at(33).x = std::nanf("");
    const FacePoints inOnePlace{};
    const FacePoints inProfile = seen({.yaw = 50});  // hides an eye
    for (const FacePoints& points : {scattered, notNumbers, inOnePlace, inProfile})
        EXPECT_FALSE(headPose(points, width, height, {}));
    EXPECT_TRUE(headPose(seen({.yaw = 46}), width, height, {}));
}

}  // namespace tarvex::camera
