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

/// The consent screen: what it shows is `body()`, an element tree that any toolkit can render.
///
/// A copyable value without mutable state; its copies and their bodies share the host's closure. Hosts get one from
/// `Client::informationView`.
class TARVEX_EXPORT InformationView {
public:
    /// The screen's element tree, built afresh on every call; calling it has no effect.
    ui::Element body() const;

private:
    friend class InformationViewFactory;

    InformationView() = default;

    platform::Platform* platform_ = nullptr;
    std::string appName_;
    std::optional<std::string> description_;
    std::vector<DataReader> readers_;
    std::optional<Url> informationURL_;
    std::function<void(bool)> completeWithConsent_;
};

}  // namespace tarvex
