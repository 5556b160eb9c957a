#pragma once

#include <string>
#include <vector>

#include "collector/http/server.h"

namespace tarvex::collector {

/// Makes a key (ECDSA P-256, readable by its owner alone) and a certificate that it signs itself, valid for ten years,
/// and writes them to the files, replacing what is there. `hosts`: DNS names and IP addresses, one at least. Throws
/// `std::runtime_error` whose text says what is wrong; both files are then as before.
void makeSelfSignedCertificate(const HttpServer::Certificate& files, const std::vector<std::string>& hosts);

}  // namespace tarvex::collector
