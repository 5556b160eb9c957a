#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarvex/data_reader.h"
#include "tarvex/information_view.h"
#include "tarvex/platform/platform.h"
#include "tarvex/url.h"
#include "tarvex/view.h"

namespace tarvex {

/// Builds the consent screen, under the host's own name when it is given none.
class InformationViewFactory {
public:
    /// `platform` must outlive the views: their buttons use its services.
    explicit InformationViewFactory(platform::Platform& platform) : platform_(platform) {}

    InformationView informationView(std::optional<std::string> applicationName, std::optional<std::string> description,
                                    std::vector<DataReader> reader, std::optional<Url> learnMoreURL,
                                    std::function<void(bool)> completion) const;

    /// A new controller of the installed toolkit on every call.
    std::shared_ptr<ViewController> informationViewController(std::optional<std::string> applicationName,
                                                              std::optional<std::string> description,
                                                              std::vector<DataReader> reader,
                                                              std::optional<Url> learnMoreURL,
                                                              std::function<void(bool)> completion) const;

private:
    std::string hostName() const;

    platform::Platform& platform_;
};

}  // namespace tarvex
