#pragma once

#include <cstddef>
#include <expected>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/camera/vision/tflite_model.h"

namespace tarvex::camera {

/// A network ready to be computed, on the calling thread. It keeps nothing of the model's file. Reentrant.
class NeuralNetwork {
public:
    /// The network of `model`, or one sentence on why it cannot be computed. Relies on the model's shapes, as a file
    /// whose sha256 has been verified deserves.
    static std::expected<NeuralNetwork, std::string> compile(const TfliteModel& model);

    NeuralNetwork(NeuralNetwork&&) noexcept;
    NeuralNetwork& operator=(NeuralNetwork&&) noexcept;
    ~NeuralNetwork();

    /// The input tensor's numbers, in the order of its shape; to be filled before `run`.
    std::span<float> input();

    [[nodiscard]] bool run();

    /// The last run's result for the output at `place` of the model's list.
    std::span<const float> output(std::size_t place) const;

private:
    struct Compiled;
    explicit NeuralNetwork(std::unique_ptr<Compiled> compiled);

    std::unique_ptr<Compiled> compiled_;
};

}  // namespace tarvex::camera
