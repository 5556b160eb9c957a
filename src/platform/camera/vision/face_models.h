#pragma once

#include <expected>
#include <filesystem>
#include <string>

namespace tarvex::camera {

/// A network's file in the models' directory, and the sum of the only contents that are accepted.
struct FaceModelFile {
    const char* name;
    const char* sha256;
};
constexpr FaceModelFile detectorModel{.name = "face_detector.tflite",
                                      .sha256 = "3bc182eb9f33925d9e58b5c8d59308a760f4adea8f282370e428c51212c26633"};
constexpr FaceModelFile meshModel{.name = "face_mesh.tflite",
                                  .sha256 = "c603fa6149219a3e9487dc9abd7a0c24474c77263273d24868378cdf40aa26d1"};

/// True when both files exist; opens neither.
bool faceModelsArePresent(const std::filesystem::path& directory);

/// The file's bytes when its sha256 matches, else one sentence on the reason.
std::expected<std::string, std::string> readFaceModel(const std::filesystem::path& directory,
                                                      const FaceModelFile& file);

}  // namespace tarvex::camera
