#include "tarvex/data_entry.h"

#include <utility>
#include <variant>

namespace tarvex {

namespace {

template <typename T>
std::optional<T> optionalValue(const platform::AttributeValue& value) {
    const T* content = std::get_if<T>(&value);
    return content == nullptr ? std::nullopt : std::optional<T>(*content);
}

template <typename T>
platform::AttributeValue attributeValue(std::optional<T> value) {
    if (!value) return std::monostate();
    return std::move(*value);
}

}  // namespace

platform::EntityDescription DataEntry::entityDescription() {
    using platform::AttributeType;
    return {.name = "DataEntry",
            .attributes = {{.name = "id", .type = AttributeType::uuid, .optional = true},
                           {.name = "timestamp", .type = AttributeType::number, .optional = false},
                           {.name = "type", .type = AttributeType::string, .optional = true},
                           {.name = "data", .type = AttributeType::binary, .optional = true}}};
}

platform::FetchRequest DataEntry::fetchRequest() {
    return {.entityName = "DataEntry", .propertiesToFetch = {}};
}

DataEntry::DataEntry(platform::ManagedObjectContext& context) : object_(context.insertNewObject("DataEntry")) {}

std::optional<Uuid> DataEntry::id() const {
    return optionalValue<Uuid>(object_->values[idIndex]);
}

double DataEntry::timestamp() const {
    return std::get<double>(object_->values[timestampIndex]);
}

std::optional<std::string> DataEntry::type() const {
    return optionalValue<std::string>(object_->values[typeIndex]);
}

std::optional<DataEntry::Bytes> DataEntry::data() const {
    return optionalValue<Bytes>(object_->values[dataIndex]);
}

void DataEntry::setId(std::optional<Uuid> id) {
    object_->values[idIndex] = attributeValue(id);
}

void DataEntry::setTimestamp(double secondsSince1970) {
    object_->values[timestampIndex] = secondsSince1970;
}

void DataEntry::setType(std::optional<std::string> type) {
    object_->values[typeIndex] = attributeValue(std::move(type));
}

void DataEntry::setData(std::optional<Bytes> data) {
    object_->values[dataIndex] = attributeValue(std::move(data));
}

}  // namespace tarvex
