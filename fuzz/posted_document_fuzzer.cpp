// A posted body of any bytes: reading it ends in a document whose numbers are finite and whose texts are UTF-8, or in a
// sentence. What another reader takes for a document with samples is one.

#include <simdjson.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <span>
#include <string_view>

#include "collector/ingest/document_reader.h"
#include "collector/ingest/record.h"

namespace {

using namespace tarvex::collector;

void require(bool condition) {
    if (!condition) std::abort();
}

void check(const Document& document) {
    require(isUtf8(document.sender.participant) && isUtf8(document.sender.device));
    document.light.visit([](std::span<const AmbientLight> batch) {
        for (const AmbientLight& sample : batch) {
            require(std::isfinite(sample.time) && std::isfinite(sample.lux));
            for (const double channel : sample.channels)
                require(std::isfinite(channel));
        }
    });
    document.others.visit([](std::span<const OtherSample> batch) {
        for (const OtherSample& sample : batch) {
            simdjson::dom::parser parser;
            require(std::isfinite(sample.time) && isUtf8(sample.type));
            require(parser.parse(simdjson::padded_string(sample.values)).is_object());
        }
    });
    for (const Unreadable& record : document.unreadable)
        require(!record.reason.empty() && isUtf8(record.excerpt));
}

/// The number of elements that simdjson finds; absent where it takes the body for no document.
std::optional<std::uint64_t> elementsOf(std::string_view body) {
    simdjson::dom::parser parser;
    simdjson::dom::object root;
    simdjson::dom::array elements;
    std::string_view participant;
    if (parser.parse(simdjson::padded_string(body)).get(root) != simdjson::SUCCESS) return std::nullopt;
    if (root["trackingData"].get(elements) != simdjson::SUCCESS) return std::nullopt;
    if (root["userId"].get(participant) != simdjson::SUCCESS) return std::nullopt;
    // A name that comes twice is nobody's document; the two readers take different ones.
    std::uint64_t names = 0;
    for (const auto& [name, value] : root)
        names += name == "trackingData" || name == "userId" ? 1 : 0;
    if (names != 2) return std::nullopt;
    std::uint64_t count = 0;
    for ([[maybe_unused]] const auto element : elements)
        ++count;
    return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view body(reinterpret_cast<const char*>(data), size);
    try {
        const auto directory = std::filesystem::temp_directory_path();
        TemporaryFile file(directory);
        file.append(std::as_bytes(std::span(data, size)));
        const Document document = readDocument(file, directory);
        check(document);
        if (const auto elements = elementsOf(body))
            require(document.sampleCount() + document.unreadableCount == *elements);
    } catch (const NotADocument& refusal) {
        require(std::string_view(refusal.what()).ends_with('.'));
    }
    return 0;
}
