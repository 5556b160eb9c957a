#include "platform/camera/vision/tflite_model.h"

#include <cstring>
#include <random>

#include "platform/camera/vision/face_models.h"
#include "platform/camera/vision/neural_network.h"
#include "prelude.h"

namespace tarvex::camera {

namespace {

const std::filesystem::path models = TARVEX_FACE_MODELS;

std::uint32_t numberAt(const std::vector<std::byte>& bytes, std::size_t place) {
    std::uint32_t number = 0;
    std::memcpy(&number, bytes.data() + place, sizeof number);
    return number;
}

/// What is said of the model when the length of one of its lists, the first that leads to `words`, is `after` instead
/// of `before`; empty when none does.
std::string saidOfALongerList(std::vector<std::byte> bytes, std::uint32_t before, std::uint32_t after,
                              std::string_view words) {
    for (std::size_t place = 0; place + sizeof before <= bytes.size(); place += sizeof before) {
        if (numberAt(bytes, place) != before) continue;
        std::memcpy(bytes.data() + place, &after, sizeof after);
        const auto model = TfliteModel::parse(bytes);
        if (!model && model.error().contains(words)) return model.error();
        std::memcpy(bytes.data() + place, &before, sizeof before);
    }
    return "";
}

}  // namespace

TEST(TfliteModel, ReadsTheNetworksAndNothingThatWasCut) {
    for (const FaceModelFile& file : {detectorModel, meshModel}) {
        SCOPED_TRACE(file.name);
        const auto bytes = readFaceModel(models, file).value();
        ASSERT_TRUE(TfliteModel::parse(bytes));
        for (std::size_t length = 0; length < bytes.size(); length += bytes.size() / 50)
            EXPECT_FALSE(TfliteModel::parse(std::span(bytes).first(length))) << length;
    }
}

// Wherever a byte is wrong, the answer is a model whose shapes fit, so that it can be computed, or a sentence.
TEST(TfliteModel, ComputesWhatItAcceptsOfABentFile) {
    std::mt19937 random(randomSeed(7));
    auto bytes = readFaceModel(models, detectorModel).value();
    const std::size_t structure = bytes.size() / 4;  // behind it lie the weights, which may be anything
    int accepted = 0;
    int refused = 0;
    for (int round = 0; round < 200; ++round) {
        std::byte& byte = bytes[random() % (round % 10 == 0 ? bytes.size() : structure)];
        const std::byte kept = std::exchange(byte, std::byte(random()));
        const auto model = TfliteModel::parse(bytes);
        auto network = model ? NeuralNetwork::compile(*model) : std::unexpected(model.error());
        const bool computed = network && network->run();
        ++(computed ? accepted : refused);
        byte = kept;
    }
    EXPECT_GT(accepted, 0);
    EXPECT_GT(refused, 0);
}

TEST(TfliteModel, RefusesMoreDimensionsAndInputsThanFaceTrackingHas) {
    const auto bytes = readFaceModel(models, detectorModel).value();
    EXPECT_THAT(saidOfALongerList(bytes, 4, 5, "dimensions"), HasSubstr("more than four dimensions"));
    EXPECT_THAT(saidOfALongerList(bytes, 3, 257, "inputs"), HasSubstr("more inputs"));
}

TEST(NeuralNetwork, RefusesAConcatenationInsideTheNetworkAndTakesOneAtItsEnd) {
    using Kind = TfliteModel::Kind;
    TfliteModel model;
    for (const std::size_t height : {2, 2, 2, 4, 4})
        model.tensors.emplace_back().shape = {1, height, 2, 1};
    const auto append = [&](Kind kind, std::vector<std::size_t> inputs, std::size_t output) {
        TfliteModel::Operator& oper = model.operators.emplace_back();
        oper.kind = kind;
        oper.inputs = std::move(inputs);
        oper.output = output;
        oper.axis = 1;
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

}  // namespace tarvex::camera
