#include "tarvex/data_entry.h"

#include <utility>

namespace tarvex {

namespace {

constexpr const char* entityName = "DataEntry";

}  // namespace

platform::FetchRequest DataEntry::fetchRequest() {
    return {.entityName = entityName};
}

DataEntry::DataEntry(platform::ManagedObjectContext& context) : object_(context.insertNewObject(entityName)) {}

std::optional<Uuid> DataEntry::id() const {
    return object_->id;
}

double DataEntry::timestamp() const {
    return object_->timestamp;
}

std::optional<std::string> DataEntry::type() const {
    return object_->type;
}

std::optional<DataEntry::Bytes> DataEntry::data() const {
    return object_->data;
}

void DataEntry::setId(std::optional<Uuid> id) {
    object_->id = id;
}

void DataEntry::setTimestamp(double secondsSince1970) {
    object_->timestamp = secondsSince1970;
}

void DataEntry::setType(std::optional<std::string> type) {
    object_->type = std::move(type);
}

void DataEntry::setData(std::optional<Bytes> data) {
    object_->data = std::move(data);
}

}  // namespace tarvex
