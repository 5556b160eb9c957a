// A model file of any bytes: reading it ends in a model or in a sentence.

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/camera/vision/tflite_model.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static_cast<void>(tarvex::camera::TfliteModel::parse(std::as_bytes(std::span(data, size))));
    return 0;
}
