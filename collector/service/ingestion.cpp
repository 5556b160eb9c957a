#include "collector/service/ingestion.h"

#include <algorithm>
#include <cctype>

namespace tarvex::collector {
namespace {

bool isJson(std::string_view contentType) {
    constexpr std::string_view json = "application/json";
    const auto type = contentType.substr(0, contentType.find_first_of("; \t"));
    return std::ranges::equal(
        type, json, [](char given, char wanted) { return std::tolower(static_cast<unsigned char>(given)) == wanted; });
}

}  // namespace

std::optional<Response> screenPost(const RequestHead& head, const Importer& importer) {
    if (head.path != "/tracking") return Response{.status = 404, .body = "Documents are posted to /tracking.\n"};
    if (head.method != "POST")
        return Response{.status = 405, .body = "Documents are posted.\n", .fields = {{"Allow", "POST"}}};
    if (!isJson(head.field("content-type")))
        return Response{.status = 415, .body = "A document is application/json.\n"};
    if (importer.isBusy()) return unavailable("The collector has too much to import.");
    return std::nullopt;
}

}  // namespace tarvex::collector
