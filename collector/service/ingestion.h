#pragma once

#include <optional>

#include "collector/http/server.h"
#include "collector/ingest/importer.h"

namespace tarvex::collector {

/// The answer to a post that its head already decides; absent where its body is wanted.
std::optional<Response> screenPost(const RequestHead& head, const Importer& importer);

}  // namespace tarvex::collector
