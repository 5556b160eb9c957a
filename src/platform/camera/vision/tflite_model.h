#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tarvex::camera {

/// A network as a TFLite file describes it, of the operators that face tracking meets, its shapes checked: whoever
/// computes it from these numbers stays within the tensors.
///
/// Tensors of four dimensions are [batch, height, width, channels]; the batch is 1. Looks at the file's bytes, which
/// must outlive it.
struct TfliteModel {
    enum class Number : std::uint8_t { float32, float16, int32 };

    struct Tensor {
        std::vector<std::size_t> shape;
        Number number = Number::float32;
        std::span<const std::byte> constant;  ///< empty for a tensor that is computed

        std::size_t elementCount() const;
    };

    enum class Kind : std::uint8_t {
        add,
        concatenation,
        convolution2d,         ///< inputs: picture, filter [out, height, width, in], bias [out]
        depthwiseConvolution,  ///< inputs: picture, filter [1, height, width, out], bias [out]
        dequantize,            ///< of a float16 constant
        maxPooling2d,
        pad,    ///< inputs: picture, int32 [4, 2]
        prelu,  ///< inputs: picture, slopes, one a channel
        relu,
        reshape,
    };

    struct Window {
        bool samePadding = false;  ///< else only places where the window lies within the picture
        std::uint32_t height = 1;
        std::uint32_t width = 1;
        std::uint32_t strideHeight = 1;
        std::uint32_t strideWidth = 1;
    };

    struct Operator {
        Kind kind = Kind::add;
        std::vector<std::size_t> inputs;  ///< places in `tensors`
        std::size_t output = 0;
        Window window;           ///< of a convolution or a pooling
        bool reluAfter = false;  ///< negative results become 0
        std::size_t axis = 0;    ///< of a concatenation
    };

    std::vector<Tensor> tensors;
    std::vector<Operator> operators;  ///< each after those whose output it reads
    std::size_t input = 0;
    std::vector<std::size_t> outputs;

    /// The model in `file`, or one sentence on what is wrong with it.
    static std::expected<TfliteModel, std::string> parse(std::span<const std::byte> file);
};

/// The four pairs of a pad operator: how much comes before and after in each dimension.
struct Padding {
    std::array<std::size_t, 4> before{};
    std::array<std::size_t, 4> after{};
};
std::optional<Padding> paddingOf(const TfliteModel::Tensor& constant);

}  // namespace tarvex::camera
