#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "collector/configuration/configuration.h"
#include "collector/store/store.h"

namespace tarvex::collector {

/// Makes the collector's directory, for its user alone, and opens the store of the configuration in it. Throws
/// `std::filesystem::filesystem_error` and `StoreUnavailable`.
std::unique_ptr<Store> openConfiguredStore(const Configuration& configuration);

/// The secret that the page's address carries; made when there is none, or when `renews`. In a file that the
/// collector's user alone may read. Throws `std::system_error`.
std::string pageToken(const Configuration& configuration, bool renews = false);

/// The page's address, with the token unless that is empty.
std::string pageAddress(const Configuration& configuration, std::uint16_t port, const std::string& token);

/// As in an address: `host:port`, an address of IPv6 in brackets.
std::string hostAndPort(std::string host, std::uint16_t port);

}  // namespace tarvex::collector
