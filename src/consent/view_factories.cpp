#include "consent/view_factories.h"

#include <string_view>
#include <utility>

namespace tarvex {

namespace {

// Copies of the view, of its bodies and of their buttons share the host's closure and what it holds.
std::function<void(bool)> shared(std::function<void(bool)> closure) {
    if (!closure) return nullptr;
    return [closure = std::make_shared<std::function<void(bool)>>(std::move(closure))](bool decision) {
        (*closure)(decision);
    };
}

}  // namespace

InformationView InformationViewFactory::informationView(std::optional<std::string> applicationName,
                                                        std::optional<std::string> description,
                                                        std::vector<DataReader> reader, std::optional<Url> learnMoreURL,
                                                        std::function<void(bool)> completion) const {
    InformationView view;
    view.platform_ = &platform_;
    view.appName_ = applicationName ? *std::move(applicationName) : hostName();
    view.description_ = std::move(description);
    view.readers_ = std::move(reader);
    view.informationURL_ = std::move(learnMoreURL);
    view.completeWithConsent_ = shared(std::move(completion));
    return view;
}

std::shared_ptr<ViewController> InformationViewFactory::informationViewController(
    std::optional<std::string> applicationName, std::optional<std::string> description, std::vector<DataReader> reader,
    std::optional<Url> learnMoreURL, std::function<void(bool)> completion) const {
    return platform_.viewToolkit().makeHostingController(
        informationView(std::move(applicationName), std::move(description), std::move(reader), std::move(learnMoreURL),
                        std::move(completion)));
}

std::string InformationViewFactory::hostName() const {
    const platform::Bundle& host = platform_.bundles().mainBundle();
    for (const std::string_view key : {"CFBundleDisplayName", "CFBundleName"}) {
        if (auto name = host.stringForInfoDictionaryKey(key)) return *std::move(name);
    }
    return "Unknown";
}

}  // namespace tarvex
