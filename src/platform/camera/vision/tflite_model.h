#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <span>
#include <string>
#include <vector>

namespace tarvex::camera {

/// A network as a TFLite file describes it. Refers to the file's bytes, which must outlive it.
///
/// Tensors of four dimensions are [batch, height, width, channels]; the batch is 1.
struct TfliteModel {
    enum class Number : std::uint8_t { float32 = 0, float16 = 1, int32 = 2 };  ///< numbered as in the file

    struct Tensor {
        std::vector<std::size_t> shape;
        Number number = Number::float32;
        std::span<const std::byte> constant;  ///< empty for a tensor that is computed

        std::size_t elementCount() const;
    };

    /// Numbered as in the file, which may name others.
    enum class Kind : std::uint8_t {
        add = 0,
        concatenation = 2,
        convolution2d = 3,         ///< inputs: picture, filter [out, height, width, in], bias [out]
        depthwiseConvolution = 4,  ///< inputs: picture, filter [1, height, width, out], bias [out]
        dequantize = 6,            ///< of a float16 constant
        maxPooling2d = 17,
        relu = 19,
        reshape = 22,
        pad = 34,    ///< inputs: picture, int32 [4, 2]
        prelu = 54,  ///< inputs: picture, slopes, one a channel
    };

    struct Window {
        bool samePadding = false;  ///< else only places where the window lies within the picture
        std::uint32_t strideHeight = 1;
        std::uint32_t strideWidth = 1;
        std::uint32_t height = 1;  ///< of a pooling; a convolution's is its filter's
        std::uint32_t width = 1;
    };

    struct Operator {
        Kind kind = Kind::add;
        std::vector<std::size_t> inputs;  ///< places in `tensors`; at least one
        std::size_t output = 0;
        Window window;         ///< of a convolution or a pooling
        std::size_t axis = 0;  ///< of a concatenation
    };

    std::vector<Tensor> tensors;
    std::vector<Operator> operators;  ///< each after those whose output it reads
    std::size_t input = 0;
    std::vector<std::size_t> outputs;

    /// The model in `file`, or one sentence on why it is none. Its places lie within its lists; that its shapes fit
    /// together, and constants fill them, is not checked.
    static std::expected<TfliteModel, std::string> parse(std::span<const std::byte> file);
};

}  // namespace tarvex::camera
