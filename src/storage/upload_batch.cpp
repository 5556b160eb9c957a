// The assembly of the whole store into one upload document.

#include <new>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "client/user_identifier.h"
#include "storage/persistence_controller.h"
#include "storage/upload_document.h"
#include "tarvex/data_entry.h"

namespace tarvex {

namespace {

void appendRecord(std::span<const platform::AttributeView> record, UploadDocument& document) {
    const auto* timestamp = std::get_if<double>(&record[DataEntry::timestampIndex]);
    const auto* type = std::get_if<std::string_view>(&record[DataEntry::typeIndex]);
    const auto* data = std::get_if<std::span<const std::byte>>(&record[DataEntry::dataIndex]);
    if (timestamp == nullptr || type == nullptr || data == nullptr) return;
    document.appendSample(*timestamp, *type, {reinterpret_cast<const char*>(data->data()), data->size()});
}

}  // namespace

std::optional<platform::ByteBuffer> PersistenceController::loadTrackingData() {
    try {
        return assembleUploadDocument();
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

std::optional<platform::ByteBuffer> PersistenceController::assembleUploadDocument() {
    auto document = fetchSamples();
    if (!document) return std::nullopt;
    // Without the lock: no sample waits for the defaults.
    const auto userId = userID(platform_);
    if (!userId) return std::nullopt;
    const std::string device = platform_.systemInfo().machine();
    const std::string application = platform_.bundles().mainBundle().bundleIdentifier().value_or("unknown");
    return document->finish(*userId, device, application);
}

std::optional<UploadDocument> PersistenceController::fetchSamples() {
    const std::lock_guard lock(mutex_);
    platform::ManagedObjectContext& context = viewContextOrStop();
    if (isAnythingPending()) commit(tickPatience);
    platform::FetchRequest request = DataEntry::fetchRequest();
    request.propertiesToFetch = {DataEntry::timestampIndex, DataEntry::typeIndex, DataEntry::dataIndex};
    std::optional<UploadDocument> document(std::in_place, platform_.jsonCoder(), context.fetchSizeBound(request));
    const auto fetched = context.fetch(request, [&document](std::span<const platform::AttributeView> record) {
        appendRecord(record, *document);
        return true;
    });
    if (!fetched) document.reset();
    return document;
}

}  // namespace tarvex
