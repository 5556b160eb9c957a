#pragma once

#include <cstddef>
#include <expected>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/camera/vision/tflite_model.h"

namespace tarvex::camera {

/// A network ready to be computed, on the calling thread. It keeps nothing of the model's file.
class NeuralNetwork {
public:
    /// The network of `model`, or one sentence on why it cannot be computed.
    static std::expected<NeuralNetwork, std::string> compile(const TfliteModel& model);

    NeuralNetwork(NeuralNetwork&&) noexcept;
    NeuralNetwork& operator=(NeuralNetwork&&) noexcept;
    ~NeuralNetwork();

    /// To be filled before `run`: the input tensor's numbers, in the order of its shape.
    std::span<float> input();
    std::size_t inputHeight() const;
    std::size_t inputWidth() const;

    [[nodiscard]] bool run();

    /// What the last run computed for the output at `place` of the model's list.
    std::span<const float> output(std::size_t place) const;
    std::size_t outputCount() const;

private:
    struct Compiled;
    explicit NeuralNetwork(std::unique_ptr<Compiled> compiled);

    std::unique_ptr<Compiled> compiled_;
};

}  // namespace tarvex::camera
