#pragma once

#include <filesystem>
#include <optional>

#include "tarvex/platform/object_store.h"

namespace tarvex::platform {

/// The object model in a JSON file:
///
///     {"entities": [{"name": "Entry", "attributes": [{"name": "id", "type": "uuid", "optional": true}, …]}, …]}
///
/// Absent unless the whole is well-formed: entities and attributes present, their names ASCII letters, digits and
/// underscores behind a first letter, unique without regard to case and not reserved by the store ("seq", "sqlite_…");
/// types "uuid", "number", "string" or "binary".
std::optional<ManagedObjectModel> readObjectModel(const std::filesystem::path& path);

}  // namespace tarvex::platform
