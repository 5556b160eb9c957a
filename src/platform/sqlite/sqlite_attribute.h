#pragma once

#include <sqlite3.h>

#include "tarvex/platform/object_store.h"

namespace tarvex::platform {

/// Binds without copying: the value must live until the statement is reset. Gives SQLite's result.
int bindAttribute(sqlite3_stmt* statement, int parameter, const AttributeValue& value);

/// An attribute of the current row, valid until the statement goes on; absent when the stored value has another type.
AttributeView readAttribute(sqlite3_stmt* row, int column, AttributeType type);

}  // namespace tarvex::platform
