#pragma once

#include <functional>
#include <memory>
#include <string>

#include "collector/exports/export.h"

namespace tarvex::collector {

/// What `write` writes to its sink, piece by piece, an empty one at its end: for whoever takes pieces at a pace of
/// their own. It is made on a thread that ends with the last copy of what is returned, in constant memory, with a store
/// that `open` opens there. A call throws what `write` has thrown.
std::function<std::string()> streamExport(std::function<std::unique_ptr<Store>()> open,
                                          std::function<void(Store&, const Sink&)> write);

}  // namespace tarvex::collector
