// A model file of any bytes. What the reader accepts, the networks' engine can be set up for and computed by.

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/camera/vision/neural_network.h"
#include "platform/camera/vision/tflite_model.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto model = tarvex::camera::TfliteModel::parse(std::as_bytes(std::span(data, size)));
    if (!model) return 0;
    auto network = tarvex::camera::NeuralNetwork::compile(*model);
    if (network) static_cast<void>(network->run());
    return 0;
}
