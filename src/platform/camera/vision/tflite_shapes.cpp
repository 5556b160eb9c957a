#include "platform/camera/vision/tflite_shapes.h"

#include <algorithm>
#include <optional>

namespace tarvex::camera {
namespace {

using Kind = TfliteModel::Kind;
using Number = TfliteModel::Number;
using Shape = std::vector<std::size_t>;
using Tensor = TfliteModel::Tensor;

std::size_t byteCount(const Tensor& tensor) {
    return tensor.elementCount() * (tensor.number == Number::float16 ? 2 : 4);
}

std::size_t inputCount(const TfliteModel::Operator& oper) {
    switch (oper.kind) {
        case Kind::convolution2d:
        case Kind::depthwiseConvolution:
            return 3;
        case Kind::add:
        case Kind::pad:
        case Kind::prelu:
            return 2;
        case Kind::concatenation:
            return oper.inputs.size();
        case Kind::reshape:
            return std::min<std::size_t>(oper.inputs.size(), 2);  // the second repeats the new shape
        default:
            return 1;
    }
}

/// One side of a picture after a window has moved over it (as TensorFlow computes "SAME" and "VALID").
std::optional<std::size_t> sideAfter(std::size_t side, std::size_t window, std::size_t stride, bool samePadding) {
    if (samePadding) return (side + stride - 1) / stride;
    if (window > side) return std::nullopt;
    return (side - window) / stride + 1;
}

std::optional<Shape> windowed(const TfliteModel::Operator& oper, const Shape& picture, std::size_t channels) {
    const TfliteModel::Window& window = oper.window;
    const auto height = sideAfter(picture[1], window.height, window.strideHeight, window.samePadding);
    const auto width = sideAfter(picture[2], window.width, window.strideWidth, window.samePadding);
    if (!height || !width) return std::nullopt;
    return Shape{1, *height, *width, channels};
}

std::optional<Shape> convolved(const TfliteModel::Operator& oper, const Shape& picture, const Tensor& filter,
                               const Tensor& bias) {
    if (filter.shape.size() != 4) return std::nullopt;
    const bool depthwise = oper.kind == Kind::depthwiseConvolution;
    const std::size_t channels = depthwise ? filter.shape[3] : filter.shape[0];
    const bool fits = depthwise ? filter.shape[0] == 1 && channels % picture[3] == 0 : filter.shape[3] == picture[3];
    if (!fits || bias.shape != Shape{channels}) return std::nullopt;
    return windowed(oper, picture, channels);
}

std::optional<Shape> padded(const Shape& picture, const Tensor& amounts) {
    const auto padding = paddingOf(amounts);
    if (!padding) return std::nullopt;
    Shape shape = picture;
    for (std::size_t dimension = 0; dimension < 4; ++dimension)
        shape[dimension] += padding->before.at(dimension) + padding->after.at(dimension);
    return shape;
}

std::optional<Shape> joined(const TfliteModel& model, const TfliteModel::Operator& oper) {
    if (oper.inputs.empty()) return std::nullopt;
    Shape shape = model.tensors[oper.inputs.front()].shape;
    if (oper.axis >= shape.size()) return std::nullopt;
    shape[oper.axis] = 0;
    for (const std::size_t input : oper.inputs) {
        Shape part = model.tensors[input].shape;
        if (part.size() != shape.size()) return std::nullopt;
        shape[oper.axis] += part[oper.axis];
        part[oper.axis] = shape[oper.axis];
        if (part != shape) return std::nullopt;
    }
    return shape;
}

bool isPicture(const Tensor& tensor) {
    return tensor.shape.size() == 4 && tensor.shape[0] == 1;
}

/// What the operator makes of its inputs; absent where they do not fit together.
std::optional<Shape> shapeAfter(const TfliteModel& model, const TfliteModel::Operator& oper) {
    const auto input = [&](std::size_t place) -> const Tensor& { return model.tensors[oper.inputs[place]]; };
    const Tensor& first = input(0);
    switch (oper.kind) {
        case Kind::convolution2d:
        case Kind::depthwiseConvolution:
            return isPicture(first) ? convolved(oper, first.shape, input(1), input(2)) : std::nullopt;
        case Kind::maxPooling2d:
            return isPicture(first) ? windowed(oper, first.shape, first.shape[3]) : std::nullopt;
        case Kind::pad:
            return isPicture(first) ? padded(first.shape, input(1)) : std::nullopt;
        case Kind::prelu:
            return isPicture(first) && input(1).elementCount() == first.shape[3] ? std::optional(first.shape)
                                                                                 : std::nullopt;
        case Kind::add:
            return first.shape == input(1).shape ? std::optional(first.shape) : std::nullopt;
        case Kind::concatenation:
            return joined(model, oper);
        case Kind::reshape: {
            const Tensor& output = model.tensors[oper.output];
            return output.elementCount() == first.elementCount() ? std::optional(output.shape) : std::nullopt;
        }
        case Kind::dequantize:
        case Kind::relu:
            return first.shape;
    }
    return std::nullopt;
}

/// The inputs behind the first are constants where the operator has weights; all others are computed before.
bool inputsAreThere(const TfliteModel& model, const TfliteModel::Operator& oper, const std::vector<bool>& computed,
                    const std::vector<bool>& folded) {
    for (std::size_t place = 0; place < oper.inputs.size(); ++place) {
        const std::size_t tensor = oper.inputs[place];
        const bool constant = !model.tensors[tensor].constant.empty();
        const bool weight = place > 0 && oper.kind != Kind::add && oper.kind != Kind::concatenation;
        if (oper.kind == Kind::dequantize) {
            if (!constant || model.tensors[tensor].number != Number::float16) return false;
            continue;
        }
        const bool isThere = weight ? constant || folded[tensor] : computed[tensor];
        const bool integers = weight && (oper.kind == Kind::pad || oper.kind == Kind::reshape);
        if (!isThere || (!integers && model.tensors[tensor].number != Number::float32)) return false;
    }
    return true;
}

}  // namespace

std::expected<void, std::string> checkShapes(const TfliteModel& model) {
    const auto failure = [](std::string what) { return std::unexpected(std::move(what)); };
    for (const Tensor& tensor : model.tensors) {
        if (!tensor.constant.empty() && tensor.constant.size() != byteCount(tensor))
            return failure("a constant has not the bytes of its shape");
    }
    std::vector<bool> computed(model.tensors.size());
    std::vector<bool> folded(model.tensors.size());
    if (!isPicture(model.tensors[model.input]) || model.tensors[model.input].number != Number::float32)
        return failure("its input is no picture");
    computed[model.input] = true;
    for (std::size_t place = 0; place < model.operators.size(); ++place) {
        const TfliteModel::Operator& oper = model.operators[place];
        const Tensor& output = model.tensors[oper.output];
        if (oper.inputs.size() != inputCount(oper) || oper.inputs.empty() ||
            !inputsAreThere(model, oper, computed, folded))
            return failure("operator " + std::to_string(place) + " has not the inputs it needs");
        const auto shape = shapeAfter(model, oper);
        if (!shape || *shape != output.shape || output.number != Number::float32 || !output.constant.empty())
            return failure("the shapes around operator " + std::to_string(place) + " do not fit together");
        if (computed[oper.output] || folded[oper.output])
            return failure("operator " + std::to_string(place) + " computes what is there already");
        (oper.kind == Kind::dequantize ? folded : computed)[oper.output] = true;
    }
    std::vector<bool> used(model.tensors.size());
    for (const std::size_t output : model.outputs) {
        if (!computed[output]) return failure("an output is not computed");
        used[output] = true;
    }
    for (const TfliteModel::Operator& oper : model.operators) {
        for (const std::size_t input : oper.inputs)
            used[input] = true;
    }
    // Inference engines take it that nothing is computed in vain.
    if (!std::ranges::all_of(model.operators, [&](const auto& oper) { return used[oper.output]; }))
        return failure("an operator computes what nobody reads");
    return {};
}

}  // namespace tarvex::camera
