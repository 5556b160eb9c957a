#include "tarvex/information_view.h"

#include <limits>
#include <utility>

#include "consent/consent.h"
#include "tarvex/platform/platform.h"

namespace tarvex {
namespace {

using namespace ui;

constexpr double iconWidth = 100;
constexpr double textMargin = 30;
constexpr double bulletSize = 10;
constexpr double gapAfterBullet = 8;
constexpr double consentCornerRadius = 8;

Text localized(std::string key, std::vector<std::string> arguments = {}) {
    return {LocalizedText{.key = std::move(key), .arguments = std::move(arguments)}};
}

Element topBar(std::function<void()> cancel) {
    Element button{Button{.label = {{localized("Cancel"), {}}}, .action = std::move(cancel), .name = "cancel"},
                   {Padding{{.trailing = true}}, Padding{{.top = true}}}};
    return {HStack{.children = {{Spacer{}, {}}, std::move(button)}}, {}};
}

Element icon() {
    return {Image{.systemName = "gearshape.2.fill"},
            {Resizable{}, ScaledToFit{}, ForegroundColor{Color::blue}, FixedFrame{.width = iconWidth},
             Padding{Edges::all()}}};
}

Element title() {
    return {localized("Research Sensor &\nUsage Data Request"),
            {Font{TextStyle::title}, Bold{}, MultilineTextAlignment{HorizontalAlignment::center}}};
}

Element paragraph(Text text) {
    return {std::move(text),
            {Font{TextStyle::body}, Padding{Edges::vertical()}, Padding{Edges::horizontal(), textMargin}}};
}

Element headline(const std::string& appName) {
    return paragraph(
        localized("\"%@\" would like to collect and share Sensor & Usage Data from your device.", {appName}));
}

Element learnMoreButton(std::function<void()> learnMore) {
    return {Button{.label = {{localized("Learn more..."), {}}}, .action = std::move(learnMore), .name = "learn-more"},
            {}};
}

Element readerRow(const DataReader& reader) {
    Element bullet{
        Circle{Color::gray},
        {FixedFrame{.width = bulletSize, .height = bulletSize}, Padding{{.trailing = true}, gapAfterBullet}}};
    Element name{localized("%@", {std::string(reader.description())}), {Font{TextStyle::body}}};
    return {HStack{.children = {std::move(bullet), std::move(name)}}, {Padding{{.leading = true}}}};
}

Element requestedData(const std::vector<DataReader>& readers) {
    ForEach rows;
    for (const DataReader& reader : readers)
        rows.rows.push_back({.identity = reader, .element = readerRow(reader)});
    Element heading{localized("Requested Data"), {Bold{}, Font{TextStyle::body}}};
    Element list{
        VStack{.alignment = HorizontalAlignment::leading, .children = {std::move(heading), {std::move(rows), {}}}}, {}};
    return {HStack{.children = {std::move(list), {Spacer{}, {}}}}, {Padding{Edges::all()}}};
}

Element consentButton(std::function<void()> consent) {
    return {Button{.label = {{localized("I consent"), {Bold{}}}}, .action = std::move(consent), .name = "consent"},
            {Padding{Edges::all()}, FlexibleFrame{.maxWidth = std::numeric_limits<double>::infinity()},
             Background{Color::blue}, ForegroundColor{Color::white}, ClipShape{RoundedRectangle{consentCornerRadius}},
             Padding{Edges::all()}}};
}

}  // namespace

Element InformationView::body() const {
    VStack screen;
    screen.children.push_back(topBar([view = *this] { refuseConsent(view.completeWithConsent_); }));
    screen.children.push_back(icon());
    screen.children.push_back(title());
    screen.children.push_back(headline(appName_));
    if (description_) screen.children.push_back(paragraph({VerbatimText{*description_}}));
    if (informationURL_) {
        screen.children.push_back(learnMoreButton(
            [platform = platform_, url = *informationURL_] { openInformation(platform->application(), url); }));
    }
    screen.children.push_back({Spacer{}, {}});
    screen.children.push_back(requestedData(readers_));
    screen.children.push_back({Spacer{}, {}});
    screen.children.push_back(consentButton([view = *this] {
        requestConsent(view.platform_->captureDevice(), view.platform_->userDefaults(), view.readers_,
                       view.completeWithConsent_);
    }));
    return {std::move(screen), {}};
}

}  // namespace tarvex
