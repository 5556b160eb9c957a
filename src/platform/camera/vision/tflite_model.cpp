#include "platform/camera/vision/tflite_model.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <optional>

#include "tflite_generated.h"

namespace tarvex::camera {
namespace {

using Failure = std::unexpected<std::string>;
using Places = std::vector<std::size_t>;

/// The list's numbers; absent when one of them is no place of `count`.
std::optional<Places> placesIn(const flatbuffers::Vector<std::int32_t>& list, std::size_t count) {
    const auto isPlace = [&](std::int32_t place) { return place >= 0 && static_cast<std::size_t>(place) < count; };
    if (!std::ranges::all_of(list, isPlace)) return std::nullopt;
    return Places(list.begin(), list.end());
}

std::optional<TfliteModel::Tensor> tensorOf(const tflite::Tensor& source, const tflite::Model& model) {
    if (source.buffer() >= model.buffers()->size()) return std::nullopt;
    TfliteModel::Tensor tensor{.shape = Places(source.shape()->begin(), source.shape()->end()),
                               .number = static_cast<TfliteModel::Number>(source.type()),
                               .constant = {}};
    if (const auto* data = model.buffers()->Get(source.buffer())->data(); data != nullptr)
        tensor.constant = std::as_bytes(std::span(data->data(), data->size()));
    return tensor;
}

template <typename Options>
TfliteModel::Window windowOf(const Options& options) {
    return {.samePadding = options.padding() == tflite::Padding::same,
            .strideHeight = static_cast<std::uint32_t>(options.stride_height()),
            .strideWidth = static_cast<std::uint32_t>(options.stride_width())};
}

/// Takes over the options; false for one that the networks do not use.
bool takeOptions(const tflite::Operator& source, TfliteModel::Operator& oper) {
    const auto isUndilated = [](const auto& options) {
        return options.dilation_width() == 1 && options.dilation_height() == 1;
    };
    std::int8_t activation = 0;
    if (const auto* convolution = source.options_as_ConvolutionOptions()) {
        oper.window = windowOf(*convolution);
        activation = convolution->activation();
        if (!isUndilated(*convolution)) return false;
    } else if (const auto* depthwise = source.options_as_DepthwiseOptions()) {
        oper.window = windowOf(*depthwise);
        activation = depthwise->activation();
        if (!isUndilated(*depthwise)) return false;
    } else if (const auto* pooling = source.options_as_PoolingOptions()) {
        oper.window = windowOf(*pooling);
        oper.window.height = static_cast<std::uint32_t>(pooling->height());
        oper.window.width = static_cast<std::uint32_t>(pooling->width());
        activation = pooling->activation();
    } else if (const auto* concatenation = source.options_as_ConcatenationOptions()) {
        oper.axis = static_cast<std::size_t>(concatenation->axis());
        activation = concatenation->activation();
    } else if (const auto* add = source.options_as_AddOptions()) {
        activation = add->activation();
    }
    return activation == 0;
}

std::optional<TfliteModel::Operator> operatorOf(const tflite::Operator& source, const tflite::Model& model,
                                                std::size_t tensors) {
    auto inputs = placesIn(*source.inputs(), tensors);
    const auto outputs = placesIn(*source.outputs(), tensors);
    if (!inputs || inputs->empty() || !outputs || outputs->size() != 1) return std::nullopt;
    if (source.code() >= model.codes()->size()) return std::nullopt;
    const auto builtin = model.codes()->Get(source.code())->builtin();
    TfliteModel::Operator oper{.kind = static_cast<TfliteModel::Kind>(builtin),
                               .inputs = std::move(*inputs),
                               .output = outputs->front(),
                               .window = {}};
    if (!takeOptions(source, oper)) return std::nullopt;
    return oper;
}

}  // namespace

std::size_t TfliteModel::Tensor::elementCount() const {
    return std::accumulate(shape.begin(), shape.end(), std::size_t{1}, std::multiplies());
}

std::expected<TfliteModel, std::string> TfliteModel::parse(std::span<const std::byte> file) {
    flatbuffers::Verifier verifier(reinterpret_cast<const std::uint8_t*>(file.data()), file.size());
    if (!tflite::VerifyModelBuffer(verifier)) return Failure("it is no TFLite model");
    const tflite::Model& source = *tflite::GetModel(file.data());
    if (source.graphs()->size() == 0) return Failure("it has no graph");
    const tflite::Graph& graph = *source.graphs()->Get(0);

    TfliteModel model;
    for (const tflite::Tensor* described : *graph.tensors()) {
        auto tensor = tensorOf(*described, source);
        if (!tensor) return Failure("a tensor's buffer is not in it");
        model.tensors.push_back(std::move(*tensor));
    }
    const std::size_t tensors = model.tensors.size();
    for (const tflite::Operator* described : *graph.operators()) {
        auto oper = operatorOf(*described, source, tensors);
        if (!oper) return Failure("operator " + std::to_string(model.operators.size()) + " is not supported");
        model.operators.push_back(std::move(*oper));
    }
    const auto inputs = placesIn(*graph.inputs(), tensors);
    auto outputs = placesIn(*graph.outputs(), tensors);
    if (!inputs || inputs->size() != 1 || !outputs) return Failure("its inputs or outputs are not supported");
    model.input = inputs->front();
    model.outputs = std::move(*outputs);
    return model;
}

}  // namespace tarvex::camera
