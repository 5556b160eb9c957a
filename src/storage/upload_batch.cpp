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
    const std::lock_guard lock(mutex_);
    try {
        return assembleUploadDocument();
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

std::optional<platform::ByteBuffer> PersistenceController::assembleUploadDocument() {
    platform::ManagedObjectContext& context = viewContext();
    platform::FetchRequest request = DataEntry::fetchRequest();
    request.propertiesToFetch = {DataEntry::timestampIndex, DataEntry::typeIndex, DataEntry::dataIndex};
    UploadDocument document(platform_.jsonCoder(), context.fetchSizeBound(request));
    const auto fetched = context.fetch(request, [&document](std::span<const platform::AttributeView> record) {
        appendRecord(record, document);
        return true;
    });
    if (!fetched) return std::nullopt;
    const std::string userId = userID(platform_);
    const std::string device = platform_.systemInfo().machine();
    const std::string application = platform_.bundles().mainBundle().bundleIdentifier().value_or("unknown");
    return document.finish(userId, device, application);
}

}  // namespace tarvex
