#include "platform/camera/vision/tflite_model.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <numeric>

#include "platform/camera/vision/flat_buffer.h"
#include "platform/camera/vision/tflite_shapes.h"

namespace tarvex::camera {
namespace {

using Kind = TfliteModel::Kind;
using Failure = std::unexpected<std::string>;

// The fields' places and the numbers' meanings are those of the TFLite schema, version 3.
namespace schema {
constexpr std::string_view identifier = "TFL3";
namespace model {
enum : std::size_t { operatorCodes = 1, subgraphs = 2, buffers = 4 };
}
namespace code {
enum : std::size_t { builtinByte = 0, builtin = 3 };
}
namespace subgraph {
enum : std::size_t { tensors = 0, inputs = 1, outputs = 2, operators = 3 };
}
namespace tensor {
enum : std::size_t { shape = 0, type = 1, buffer = 2 };
}
namespace oper {
enum : std::size_t { code = 0, inputs = 1, outputs = 2, options = 4 };
}
namespace window {  // the same places in the options of both convolutions and of pooling
enum : std::size_t { padding = 0, strideWidth = 1, strideHeight = 2 };
}
namespace convolution {
enum : std::size_t { activation = 3, dilationWidth = 4, dilationHeight = 5 };
}
namespace depthwise {
enum : std::size_t { activation = 4, dilationWidth = 5, dilationHeight = 6 };
}
namespace pooling {
enum : std::size_t { width = 3, height = 4, activation = 5 };
}
}  // namespace schema

constexpr std::size_t mostTensors = 4096;
constexpr std::size_t mostDimensions = 4;
constexpr std::size_t mostInputs = 256;  // of one operator: only a concatenation has more than three
constexpr std::size_t mostElements = std::size_t{1} << 22;
constexpr std::size_t mostElementsTogether = std::size_t{1} << 25;

std::optional<Kind> kindOf(std::int32_t builtin) {
    switch (builtin) {
        case 0:
            return Kind::add;
        case 2:
            return Kind::concatenation;
        case 3:
            return Kind::convolution2d;
        case 4:
            return Kind::depthwiseConvolution;
        case 6:
            return Kind::dequantize;
        case 17:
            return Kind::maxPooling2d;
        case 19:
            return Kind::relu;
        case 22:
            return Kind::reshape;
        case 34:
            return Kind::pad;
        case 54:
            return Kind::prelu;
        default:
            return std::nullopt;
    }
}

std::vector<std::int32_t> integers(std::span<const std::byte> bytes) {
    std::vector<std::int32_t> numbers(bytes.size() / sizeof(std::int32_t));
    if (!numbers.empty()) std::memcpy(numbers.data(), bytes.data(), numbers.size() * sizeof(std::int32_t));
    return numbers;
}

std::expected<TfliteModel::Number, std::string> numberOf(std::int8_t type) {
    switch (type) {
        case 0:
            return TfliteModel::Number::float32;
        case 1:
            return TfliteModel::Number::float16;
        case 2:
            return TfliteModel::Number::int32;
        default:
            return Failure("a tensor of type " + std::to_string(type));
    }
}

std::expected<TfliteModel::Tensor, std::string> tensorOf(const FlatBufferTable& table, const FlatBufferTable& model) {
    TfliteModel::Tensor tensor;
    std::size_t elements = 1;
    const auto shape = integers(table.numbers(schema::tensor::shape, sizeof(std::int32_t)));
    if (shape.size() > mostDimensions) return Failure("a tensor of more than four dimensions");
    for (const std::int32_t length : shape) {
        if (length <= 0 || static_cast<std::size_t>(length) > mostElements / elements)
            return Failure("a tensor of a length that cannot be");
        elements *= static_cast<std::size_t>(length);
        tensor.shape.push_back(static_cast<std::size_t>(length));
    }
    const auto number = numberOf(table.number<std::int8_t>(schema::tensor::type, 0));
    if (!number) return Failure(number.error());
    tensor.number = *number;
    const auto place = table.number<std::uint32_t>(schema::tensor::buffer, 0);
    const auto buffer = model.tableAt(schema::model::buffers, place);
    if (!buffer) return Failure("a tensor whose buffer is not in the file");
    tensor.constant = buffer->bytes(0);
    return tensor;
}

std::expected<std::vector<std::size_t>, std::string> placesIn(const FlatBufferTable& table, std::size_t field,
                                                              std::size_t tensors) {
    std::vector<std::size_t> places;
    const auto numbers = integers(table.numbers(field, sizeof(std::int32_t)));
    if (numbers.size() > mostInputs) return Failure("more inputs or outputs than face tracking's");
    for (const std::int32_t place : numbers) {
        if (place < 0 || static_cast<std::size_t>(place) >= tensors) return Failure("a tensor that is not in the file");
        places.push_back(static_cast<std::size_t>(place));
    }
    return places;
}

bool readActivation(const FlatBufferTable& options, std::size_t field, TfliteModel::Operator& oper) {
    const auto activation = options.number<std::int8_t>(field, 0);
    oper.reluAfter = activation == 1;
    return activation == 0 || activation == 1;
}

bool readWindow(const FlatBufferTable& options, TfliteModel::Window& window) {
    const auto padding = options.number<std::int8_t>(schema::window::padding, 0);
    const auto width = options.number<std::int32_t>(schema::window::strideWidth, 0);
    const auto height = options.number<std::int32_t>(schema::window::strideHeight, 0);
    window.samePadding = padding == 0;
    window.strideWidth = static_cast<std::uint32_t>(width);
    window.strideHeight = static_cast<std::uint32_t>(height);
    return (padding == 0 || padding == 1) && width > 0 && width < 64 && height > 0 && height < 64;
}

bool undilated(const FlatBufferTable& options, std::size_t width, std::size_t height) {
    return options.number<std::int32_t>(width, 1) == 1 && options.number<std::int32_t>(height, 1) == 1;
}

// The filter's height and width are its tensor's; a depth multiplier shows in the filter's channels.
void takeWindowOf(const TfliteModel& model, TfliteModel::Operator& oper) {
    if (oper.inputs.size() < 2 || model.tensors[oper.inputs[1]].shape.size() != 4) return;  // refused with the shapes
    const auto& shape = model.tensors[oper.inputs[1]].shape;
    oper.window.height = static_cast<std::uint32_t>(shape[1]);
    oper.window.width = static_cast<std::uint32_t>(shape[2]);
}

bool readPooling(const FlatBufferTable& options, TfliteModel::Operator& oper) {
    const auto width = options.number<std::int32_t>(schema::pooling::width, 0);
    const auto height = options.number<std::int32_t>(schema::pooling::height, 0);
    oper.window.width = static_cast<std::uint32_t>(width);
    oper.window.height = static_cast<std::uint32_t>(height);
    return width > 0 && width < 64 && height > 0 && height < 64;
}

bool readOptions(const std::optional<FlatBufferTable>& options, const TfliteModel& model, TfliteModel::Operator& oper) {
    switch (oper.kind) {
        case Kind::convolution2d:
            takeWindowOf(model, oper);
            return options && readWindow(*options, oper.window) &&
                   undilated(*options, schema::convolution::dilationWidth, schema::convolution::dilationHeight) &&
                   readActivation(*options, schema::convolution::activation, oper);
        case Kind::depthwiseConvolution:
            takeWindowOf(model, oper);
            return options && readWindow(*options, oper.window) &&
                   undilated(*options, schema::depthwise::dilationWidth, schema::depthwise::dilationHeight) &&
                   readActivation(*options, schema::depthwise::activation, oper);
        case Kind::maxPooling2d:
            return options && readWindow(*options, oper.window) && readPooling(*options, oper) &&
                   readActivation(*options, schema::pooling::activation, oper);
        case Kind::add:
            return !options || readActivation(*options, 0, oper);
        case Kind::concatenation: {
            const auto axis = options ? options->number<std::int32_t>(0, 0) : 0;
            oper.axis = static_cast<std::size_t>(axis);
            return axis >= 0 && (!options || options->number<std::int8_t>(1, 0) == 0);
        }
        default:
            return true;
    }
}

std::expected<TfliteModel::Operator, std::string> operatorOf(const FlatBufferTable& table,
                                                             const FlatBufferTable& modelTable,
                                                             const TfliteModel& model) {
    const auto code =
        modelTable.tableAt(schema::model::operatorCodes, table.number<std::uint32_t>(schema::oper::code, 0));
    if (!code) return Failure("an operator whose code is not in the file");
    // Old files have the code in a byte, new ones in both places unless it is past 127.
    const std::int32_t builtin = std::max<std::int32_t>(code->number<std::int8_t>(schema::code::builtinByte, 0),
                                                        code->number<std::int32_t>(schema::code::builtin, 0));
    const auto kind = kindOf(builtin);
    if (!kind) return Failure("operator " + std::to_string(builtin) + ", which face tracking does not know");

    TfliteModel::Operator oper;
    oper.kind = *kind;
    auto inputs = placesIn(table, schema::oper::inputs, model.tensors.size());
    const auto outputs = placesIn(table, schema::oper::outputs, model.tensors.size());
    if (!inputs) return Failure("an operator with " + inputs.error());
    if (!outputs) return Failure("an operator with " + outputs.error());
    if (outputs->size() != 1) return Failure("an operator without its one output");
    oper.inputs = std::move(*inputs);
    oper.output = outputs->front();
    if (!readOptions(table.table(schema::oper::options), model, oper))
        return Failure("operator " + std::to_string(builtin) + " with options that face tracking does not know");
    return oper;
}

}  // namespace

std::size_t TfliteModel::Tensor::elementCount() const {
    return std::accumulate(shape.begin(), shape.end(), std::size_t{1}, std::multiplies());
}

std::expected<TfliteModel, std::string> TfliteModel::parse(std::span<const std::byte> file) {
    const auto root = FlatBufferTable::root(file, schema::identifier);
    if (!root) return Failure("it is no TFLite model");
    const auto graph = root->tableAt(schema::model::subgraphs, 0);
    if (!graph) return Failure("it holds no graph");
    const std::size_t tensors = graph->tableCount(schema::subgraph::tensors);
    const std::size_t operators = graph->tableCount(schema::subgraph::operators);
    if (tensors > mostTensors || operators > mostTensors) return Failure("its graph is larger than face tracking's");

    TfliteModel model;
    std::size_t elements = 0;
    for (std::size_t place = 0; place < tensors; ++place) {
        const auto table = graph->tableAt(schema::subgraph::tensors, place);
        if (!table) return Failure("a tensor lies outside the file");
        auto tensor = tensorOf(*table, *root);
        if (!tensor) return Failure("it has " + tensor.error());
        elements += tensor->elementCount();
        if (elements > mostElementsTogether) return Failure("its tensors are larger than face tracking's");
        model.tensors.push_back(std::move(*tensor));
    }
    for (std::size_t place = 0; place < operators; ++place) {
        const auto table = graph->tableAt(schema::subgraph::operators, place);
        if (!table) return Failure("an operator lies outside the file");
        auto oper = operatorOf(*table, *root, model);
        if (!oper) return Failure("it has " + oper.error());
        model.operators.push_back(std::move(*oper));
    }
    const auto inputs = placesIn(*graph, schema::subgraph::inputs, tensors);
    auto outputs = placesIn(*graph, schema::subgraph::outputs, tensors);
    if (!inputs || inputs->size() != 1 || !outputs || outputs->empty())
        return Failure("its inputs or outputs are amiss");
    model.input = inputs->front();
    model.outputs = std::move(*outputs);
    if (auto shapes = checkShapes(model); !shapes) return Failure(shapes.error());
    return model;
}

std::optional<Padding> paddingOf(const TfliteModel::Tensor& constant) {
    const std::vector<std::int32_t> numbers = integers(constant.constant);
    if (constant.number != TfliteModel::Number::int32 || numbers.size() != 8) return std::nullopt;
    Padding padding;
    for (std::size_t dimension = 0; dimension < 4; ++dimension) {
        const std::int32_t before = numbers[2 * dimension];
        const std::int32_t after = numbers[2 * dimension + 1];
        if (before < 0 || after < 0) return std::nullopt;
        padding.before.at(dimension) = static_cast<std::size_t>(before);
        padding.after.at(dimension) = static_cast<std::size_t>(after);
    }
    return padding;
}

}  // namespace tarvex::camera
