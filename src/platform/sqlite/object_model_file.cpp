#include "platform/sqlite/object_model_file.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string_view>
#include <utility>

namespace tarvex::platform {
namespace {

using Json = nlohmann::json;

char lowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
bool isLetter(char c) {
    return lowerCase(c) >= 'a' && lowerCase(c) <= 'z';
}
bool continuesName(char c) {
    return isLetter(c) || (c >= '0' && c <= '9') || c == '_';
}

bool isName(std::string_view name) {
    return !name.empty() && isLetter(name.front()) && std::ranges::all_of(name, continuesName);
}

bool sameName(std::string_view left, std::string_view right) {
    return std::ranges::equal(left, right, {}, lowerCase, lowerCase);
}

template <typename Description>
bool containsName(const std::vector<Description>& descriptions, std::string_view name) {
    return std::ranges::any_of(descriptions, [&](const Description& d) { return sameName(d.name, name); });
}

std::optional<std::string> nameIn(const Json& description) {
    const auto name = description.find("name");
    if (name == description.end() || !name->is_string() || !isName(name->get_ref<const std::string&>()))
        return std::nullopt;
    return name->get<std::string>();
}

std::optional<AttributeType> typeIn(const Json& description) {
    // Not a map: the store may be opened in an exit handler, after the static objects are gone.
    static constexpr std::array<std::pair<std::string_view, AttributeType>, 4> types{
        {{"uuid", AttributeType::uuid},
         {"number", AttributeType::number},
         {"string", AttributeType::string},
         {"binary", AttributeType::binary}}};
    const auto type = description.find("type");
    if (type == description.end() || !type->is_string()) return std::nullopt;
    const auto* known =
        std::ranges::find(types, type->get_ref<const std::string&>(), &decltype(types)::value_type::first);
    return known == types.end() ? std::nullopt : std::optional(known->second);
}

const Json* nonEmptyArrayIn(const Json& object, const char* key) {
    if (!object.is_object()) return nullptr;
    const auto array = object.find(key);
    return array == object.end() || !array->is_array() || array->empty() ? nullptr : &*array;
}

std::optional<AttributeDescription> attributeFrom(const Json& json) {
    if (!json.is_object()) return std::nullopt;
    auto name = nameIn(json);
    const auto type = typeIn(json);
    const auto optional = json.find("optional");
    if (!name || sameName(*name, "seq") || !type || optional == json.end() || !optional->is_boolean())
        return std::nullopt;
    return AttributeDescription{std::move(*name), *type, optional->get<bool>()};
}

std::optional<EntityDescription> entityFrom(const Json& json) {
    const Json* attributes = nonEmptyArrayIn(json, "attributes");
    if (!attributes) return std::nullopt;
    auto name = nameIn(json);
    if (!name || sameName(std::string_view(*name).substr(0, 7), "sqlite_")) return std::nullopt;
    EntityDescription entity{std::move(*name), {}};
    for (const Json& element : *attributes) {
        auto attribute = attributeFrom(element);
        if (!attribute || containsName(entity.attributes, attribute->name)) return std::nullopt;
        entity.attributes.push_back(std::move(*attribute));
    }
    return entity;
}

}  // namespace

std::optional<ManagedObjectModel> readObjectModel(const std::filesystem::path& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    const Json json = Json::parse(text.str(), nullptr, false);
    const Json* entities = nonEmptyArrayIn(json, "entities");
    if (!entities) return std::nullopt;
    ManagedObjectModel model;
    for (const Json& element : *entities) {
        auto entity = entityFrom(element);
        if (!entity || containsName(model.entities, entity->name)) return std::nullopt;
        model.entities.push_back(std::move(*entity));
    }
    return model;
}

}  // namespace tarvex::platform
