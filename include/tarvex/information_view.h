#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tarvex/data_reader.h"
#include "tarvex/export.h"
#include "tarvex/ui/element.h"
#include "tarvex/url.h"

namespace tarvex {

namespace platform {
class Platform;
}

/// The consent screen: an element tree that any toolkit can render. Hosts obtain it from `Client::informationView`.
///
/// Reentrant: a copyable value whose copies, their bodies and the buttons in them share the host's closure, and are
/// used on one thread, which is the toolkit's. The platform that it was made with must outlive it, its bodies and each
/// click that waits for the camera's permission; the process's own platform does.
class TARVEX_EXPORT InformationView {
public:
    /// The screen's element tree, built afresh on every call, which has no other effect.
    ui::Element body() const;

private:
    friend class Client;

    InformationView() = default;

    platform::Platform* platform_ = nullptr;
    std::string appName_;
    std::optional<std::string> description_;
    std::vector<DataReader> readers_;
    std::optional<Url> informationURL_;
    std::function<void(bool)> completeWithConsent_;
};

}  // namespace tarvex
