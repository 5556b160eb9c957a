#pragma once

#include <expected>
#include <string>

#include "platform/camera/vision/tflite_model.h"

namespace tarvex::camera {

/// Whether every operator's tensors have the shapes, and every constant the bytes, that the operator computes with;
/// else one sentence on what has not.
std::expected<void, std::string> checkShapes(const TfliteModel& model);

}  // namespace tarvex::camera
