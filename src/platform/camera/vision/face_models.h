#pragma once

#include <cstddef>
#include <expected>
#include <filesystem>
#include <string>
#include <vector>

namespace tarvex::camera {

/// A network's file in the models' directory, known by what it must contain.
struct FaceModelFile {
    const char* name;
    const char* sha256;
};
constexpr FaceModelFile detectorModel{.name = "face_detector.tflite",
                                      .sha256 = "3bc182eb9f33925d9e58b5c8d59308a760f4adea8f282370e428c51212c26633"};
constexpr FaceModelFile meshModel{.name = "face_mesh.tflite",
                                  .sha256 = "c603fa6149219a3e9487dc9abd7a0c24474c77263273d24868378cdf40aa26d1"};

/// Whether both files are there; opens neither.
bool faceModelsArePresent(const std::filesystem::path& directory);

/// The file's bytes, when they are the ones its sha256 stands for; else one sentence on why not.
std::expected<std::vector<std::byte>, std::string> readFaceModel(const std::filesystem::path& directory,
                                                                 const FaceModelFile& file);

}  // namespace tarvex::camera
