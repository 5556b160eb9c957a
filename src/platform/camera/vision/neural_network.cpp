// The one file that knows XNNPACK: its interface differs from release to release.
#include "platform/camera/vision/neural_network.h"

#include <xnnpack.h>

#include <Eigen/Core>
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "platform/shared/handle.h"

// Versions from 2024 on deprecate functions for ones that earlier versions lack.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace tarvex::camera {
namespace {

using Kind = TfliteModel::Kind;
using Failure = std::unexpected<std::string>;

using Subgraph = platform::Handle<xnn_subgraph, xnn_delete_subgraph>;
using Runtime = platform::Handle<xnn_runtime, xnn_delete_runtime>;

constexpr float unbounded = std::numeric_limits<float>::infinity();
// XNNPACK reads some bytes past the end of what it is given.
constexpr std::size_t readAhead = XNN_EXTRA_BYTES / sizeof(float);

/// Numbers outside the network's own memory, with the room to read ahead.
class Numbers {
public:
    explicit Numbers(std::size_t count) : count_(count), values_(count + readAhead) {}

    std::span<float> values() { return std::span(values_).first(count_); }
    float* data() { return values_.data(); }

private:
    std::size_t count_;
    std::vector<float> values_;
};

Numbers numbersOf(const TfliteModel::Tensor& constant) {
    Numbers numbers(constant.elementCount());
    if (constant.number == TfliteModel::Number::float32) {
        std::memcpy(numbers.data(), constant.constant.data(), constant.constant.size());
        return numbers;
    }
    std::size_t position = 0;
    for (float& value : numbers.values()) {
        std::uint16_t half = 0;
        std::memcpy(&half, constant.constant.data() + position, sizeof(half));
        position += sizeof(half);
        value = Eigen::half_impl::half_to_float(Eigen::half_impl::raw_uint16_to_half(half));
    }
    return numbers;
}

/// The source of an output: an external value for each input of a concatenation, else one.
struct External {
    std::uint32_t id = 0;
    std::size_t output = 0;  ///< place of the output that it belongs to
    std::size_t offset = 0;  ///< of its first number in that output
};

/// Describes a model to XNNPACK, tensor by tensor and operator by operator. The constants must outlive the runtime.
class SubgraphBuilder {
public:
    SubgraphBuilder(const TfliteModel& model, std::vector<Numbers>& constants) : model_(model), constants_(constants) {}

    std::expected<Subgraph, std::string> build() {
        findExternalValues();
        xnn_subgraph_t subgraph = nullptr;
        if (xnn_create_subgraph(1 + static_cast<std::uint32_t>(externals_.size()), 0, &subgraph) != xnn_status_success)
            return Failure("memory is exhausted");
        subgraph_.reset(subgraph);
        if (!defineExternalValues()) return Failure("its inputs or outputs cannot be computed");
        for (std::size_t place = 0; place < model_.operators.size(); ++place) {
            const TfliteModel::Operator& oper = model_.operators[place];
            if (isExported(oper)) continue;
            if (!define(oper)) return Failure("operator " + std::to_string(place) + " cannot be computed");
        }
        return std::move(subgraph_);
    }

    const std::vector<External>& externals() const { return externals_; }

private:
    /// A concatenation that only makes an output is left out: its inputs are written to their places in that output.
    bool isExported(const TfliteModel::Operator& oper) const {
        return oper.kind == Kind::concatenation && exported_.contains(oper.output);
    }

    const TfliteModel::Operator* concatenationOf(std::size_t tensor) const {
        for (const TfliteModel::Operator& oper : model_.operators) {
            if (oper.kind == Kind::concatenation && oper.output == tensor) return &oper;
        }
        return nullptr;
    }

    void findExternalValues() {
        for (std::size_t output = 0; output < model_.outputs.size(); ++output) {
            const std::size_t tensor = model_.outputs[output];
            const TfliteModel::Operator* concatenation = concatenationOf(tensor);
            if (concatenation == nullptr || !partsLieInARow(*concatenation) || isRead(tensor)) {
                addExternal(tensor, output, 0);
                continue;
            }
            exported_.insert(tensor);
            std::size_t offset = 0;
            for (const std::size_t part : concatenation->inputs) {
                addExternal(part, output, offset);
                offset += model_.tensors[part].elementCount();
            }
        }
    }

    bool isRead(std::size_t tensor) const {
        return std::ranges::any_of(model_.operators, [&](const auto& oper) {
            return std::ranges::find(oper.inputs, tensor) != oper.inputs.end();
        });
    }

    bool partsLieInARow(const TfliteModel::Operator& concatenation) const {
        const auto& shape = model_.tensors[concatenation.output].shape;
        for (std::size_t dimension = 0; dimension < concatenation.axis; ++dimension) {
            if (shape[dimension] != 1) return false;
        }
        return true;
    }

    void addExternal(std::size_t tensor, std::size_t output, std::size_t offset) {
        externalTensors_.push_back(tensor);
        externals_.push_back(
            {.id = 1 + static_cast<std::uint32_t>(externals_.size()), .output = output, .offset = offset});
    }

    bool defineExternalValues() {
        if (!defineValue(model_.input, nullptr, 0, XNN_VALUE_FLAG_EXTERNAL_INPUT)) return false;
        for (std::size_t place = 0; place < externals_.size(); ++place) {
            if (values_.contains(externalTensors_[place])) return false;  // one tensor in two outputs
            if (!defineValue(externalTensors_[place], nullptr, externals_[place].id, XNN_VALUE_FLAG_EXTERNAL_OUTPUT))
                return false;
        }
        return true;
    }

    bool defineValue(std::size_t tensor, const float* constant, std::uint32_t externalId, std::uint32_t flags) {
        const auto& shape = model_.tensors[tensor].shape;
        std::uint32_t id = XNN_INVALID_VALUE_ID;
        const auto status = xnn_define_tensor_value(subgraph_.get(), xnn_datatype_fp32, shape.size(), shape.data(),
                                                    constant, externalId, flags, &id);
        values_[tensor] = id;
        return status == xnn_status_success;
    }

    /// The numbers of a constant, null for a tensor that is computed. Weights are kept as half the bytes and widened by
    /// an operator of their own: that is done once, here.
    const float* constantOf(std::size_t tensor) {
        const auto dequantized = widened_.find(tensor);
        const TfliteModel::Tensor& source =
            model_.tensors[dequantized == widened_.end() ? tensor : dequantized->second];
        if (source.constant.empty()) return nullptr;
        constants_.push_back(numbersOf(source));
        return constants_.back().data();
    }

    /// The value of a tensor that an operator reads or writes, defined when it is met first.
    std::optional<std::uint32_t> valueOf(std::size_t tensor) {
        if (const auto found = values_.find(tensor); found != values_.end()) return found->second;
        if (!defineValue(tensor, constantOf(tensor), XNN_INVALID_VALUE_ID, 0)) return std::nullopt;
        return values_[tensor];
    }

    bool define(const TfliteModel::Operator& oper) {
        if (oper.kind == Kind::dequantize) {
            widened_[oper.output] = oper.inputs[0];
            return true;
        }
        const auto input = valueOf(oper.inputs[0]);
        const auto output = valueOf(oper.output);
        if (!input || !output) return false;
        xnn_subgraph_t subgraph = subgraph_.get();
        const auto& shape = model_.tensors[oper.output].shape;
        switch (oper.kind) {
            case Kind::convolution2d:
                return defineConvolution(oper, *input, *output);
            case Kind::depthwiseConvolution:
                return defineDepthwise(oper, *input, *output);
            case Kind::maxPooling2d:
                return definePooling(oper, *input, *output);
            case Kind::pad:
                return definePad(oper, *input, *output);
            case Kind::prelu:
                return definePrelu(oper, *input, *output);
            case Kind::relu:
                return xnn_define_clamp(subgraph, 0, unbounded, *input, *output, 0) == xnn_status_success;
            case Kind::reshape:
                return xnn_define_static_reshape(subgraph, shape.size(), shape.data(), *input, *output, 0) ==
                       xnn_status_success;
            case Kind::add: {
                const auto second = valueOf(oper.inputs[1]);
                return second && xnn_define_add2(subgraph, -unbounded, unbounded, *input, *second, *output, 0) ==
                                     xnn_status_success;
            }
            case Kind::concatenation:
            case Kind::dequantize:
                break;
        }
        return false;
    }

    static std::uint32_t paddingFlag(const TfliteModel::Window& window) {
        return window.samePadding ? XNN_FLAG_TENSORFLOW_SAME_PADDING : 0;
    }

    bool defineConvolution(const TfliteModel::Operator& oper, std::uint32_t input, std::uint32_t output) {
        const auto filter = valueOf(oper.inputs[1]);
        const auto bias = valueOf(oper.inputs[2]);
        const auto& shape = model_.tensors[oper.inputs[1]].shape;
        const TfliteModel::Window& window = oper.window;
        return filter && bias &&
               xnn_define_convolution_2d(subgraph_.get(), 0, 0, 0, 0, static_cast<std::uint32_t>(shape[1]),
                                         static_cast<std::uint32_t>(shape[2]), window.strideHeight, window.strideWidth,
                                         1, 1, 1, shape[3], shape[0], -unbounded, unbounded, input, *filter, *bias,
                                         output, paddingFlag(window)) == xnn_status_success;
    }

    bool defineDepthwise(const TfliteModel::Operator& oper, std::uint32_t input, std::uint32_t output) {
        const auto filter = valueOf(oper.inputs[1]);
        const auto bias = valueOf(oper.inputs[2]);
        const std::size_t channels = model_.tensors[oper.inputs[0]].shape[3];
        const auto& shape = model_.tensors[oper.inputs[1]].shape;
        const auto multiplier = static_cast<std::uint32_t>(shape[3] / channels);
        const TfliteModel::Window& window = oper.window;
        return filter && bias &&
               xnn_define_depthwise_convolution_2d(subgraph_.get(), 0, 0, 0, 0, static_cast<std::uint32_t>(shape[1]),
                                                   static_cast<std::uint32_t>(shape[2]), window.strideHeight,
                                                   window.strideWidth, 1, 1, multiplier, channels, -unbounded,
                                                   unbounded, input, *filter, *bias, output,
                                                   paddingFlag(window)) == xnn_status_success;
    }

    bool definePooling(const TfliteModel::Operator& oper, std::uint32_t input, std::uint32_t output) {
        const TfliteModel::Window& window = oper.window;
        return xnn_define_max_pooling_2d(subgraph_.get(), 0, 0, 0, 0, window.height, window.width, window.strideHeight,
                                         window.strideWidth, 1, 1, -unbounded, unbounded, input, output,
                                         paddingFlag(window)) == xnn_status_success;
    }

    bool definePad(const TfliteModel::Operator& oper, std::uint32_t input, std::uint32_t output) {
        std::array<std::array<std::int32_t, 2>, 4> amounts{};  // for each dimension, before and after
        const auto constant = model_.tensors[oper.inputs[1]].constant;
        std::memcpy(amounts.data(), constant.data(), std::min(constant.size(), sizeof(amounts)));
        std::array<std::size_t, 4> before{};
        std::array<std::size_t, 4> after{};
        for (std::size_t dimension = 0; dimension < amounts.size(); ++dimension) {
            before.at(dimension) = static_cast<std::size_t>(amounts.at(dimension)[0]);
            after.at(dimension) = static_cast<std::size_t>(amounts.at(dimension)[1]);
        }
        return xnn_define_static_constant_pad(subgraph_.get(), before.data(), after.data(), 0, input, output, 0) ==
               xnn_status_success;
    }

    bool definePrelu(const TfliteModel::Operator& oper, std::uint32_t input, std::uint32_t output) {
        // The file has the slopes as [1, 1, channels]; XNNPACK expects a plain list.
        const std::size_t channels = model_.tensors[oper.inputs[0]].shape[3];
        std::uint32_t slopes = XNN_INVALID_VALUE_ID;
        return xnn_define_tensor_value(subgraph_.get(), xnn_datatype_fp32, 1, &channels, constantOf(oper.inputs[1]),
                                       XNN_INVALID_VALUE_ID, 0, &slopes) == xnn_status_success &&
               xnn_define_prelu(subgraph_.get(), input, slopes, output, 0) == xnn_status_success;
    }

    const TfliteModel& model_;
    std::vector<Numbers>& constants_;
    Subgraph subgraph_;
    std::map<std::size_t, std::uint32_t> values_;  ///< tensor → XNNPACK's id
    std::map<std::size_t, std::size_t> widened_;   ///< tensor → the constant it is made of
    std::set<std::size_t> exported_;
    std::vector<std::size_t> externalTensors_;
    std::vector<External> externals_;
};

}  // namespace

struct NeuralNetwork::Compiled {
    explicit Compiled(const TfliteModel& model) : input(model.tensors[model.input].elementCount()) {
        for (const std::size_t output : model.outputs)
            outputs.emplace_back(model.tensors[output].elementCount());
    }

    std::vector<Numbers> constants;
    Numbers input;
    std::vector<Numbers> outputs;
    Runtime runtime;
};

NeuralNetwork::NeuralNetwork(std::unique_ptr<Compiled> compiled) : compiled_(std::move(compiled)) {}
NeuralNetwork::NeuralNetwork(NeuralNetwork&&) noexcept = default;
NeuralNetwork& NeuralNetwork::operator=(NeuralNetwork&&) noexcept = default;
NeuralNetwork::~NeuralNetwork() = default;

std::expected<NeuralNetwork, std::string> NeuralNetwork::compile(const TfliteModel& model) {
    if (xnn_initialize(nullptr) != xnn_status_success) return Failure("XNNPACK does not run on this machine");
    auto compiled = std::make_unique<Compiled>(model);
    SubgraphBuilder builder(model, compiled->constants);
    const auto subgraph = builder.build();
    if (!subgraph) return Failure(subgraph.error());
    xnn_runtime_t runtime = nullptr;
    if (xnn_create_runtime_v2(subgraph->get(), nullptr, 0, &runtime) != xnn_status_success)
        return Failure("XNNPACK cannot compute it");
    compiled->runtime.reset(runtime);

    std::vector<xnn_external_value> values{{.id = 0, .data = compiled->input.data()}};
    for (const External& external : builder.externals())
        values.push_back({.id = external.id, .data = compiled->outputs[external.output].data() + external.offset});
    if (xnn_setup_runtime(runtime, values.size(), values.data()) != xnn_status_success)
        return Failure("XNNPACK cannot set it up");
    return NeuralNetwork(std::move(compiled));
}

std::span<float> NeuralNetwork::input() {
    return compiled_->input.values();
}

bool NeuralNetwork::run() {
    return xnn_invoke_runtime(compiled_->runtime.get()) == xnn_status_success;
}

std::span<const float> NeuralNetwork::output(std::size_t place) const {
    return compiled_->outputs[place].values();
}

}  // namespace tarvex::camera
