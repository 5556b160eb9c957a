#include "terminal_consent.h"

#include <tarvex/client.h>
#include <unistd.h>

#include <functional>
#include <iostream>
#include <map>
#include <ranges>
#include <string>
#include <variant>
#include <vector>

namespace console_host {

namespace {

namespace ui = tarvex::ui;

// The consent screen's text, line by line, and its buttons by their labels.
class TerminalScreen {
public:
    explicit TerminalScreen(const ui::Element& root) { add(root); }

    const std::string& text() const { return text_; }
    void press(const std::string& label) const { buttons_.at(label)(); }

private:
    static std::string wording(const ui::Text& text) {
        if (const auto* verbatim = std::get_if<ui::VerbatimText>(&text.source)) return verbatim->text;
        const auto& localized = std::get<ui::LocalizedText>(text.source);
        std::string result = localized.key;
        std::size_t position = 0;
        for (const std::string& argument : localized.arguments) {
            position = result.find("%@", position);
            if (position == std::string::npos) break;
            result.replace(position, 2, argument);
            position += argument.size();
        }
        return result;
    }

    void add(const ui::Element& element) {
        std::visit([this](const auto& content) { show(content); }, element.content);
    }

    void show(const ui::Text& text) {
        for (const auto line : std::views::split(wording(text), '\n'))
            text_ += "  " + std::string(line.begin(), line.end()) + "\n";
    }

    void show(const ui::Circle& /*bullet*/) { text_ += "  -"; }
    void show(const ui::Image& /*symbol*/) {}
    void show(const ui::Spacer& /*room*/) {}

    void show(const ui::Button& button) {
        for (const ui::Element& label : button.label) {
            if (const auto* text = std::get_if<ui::Text>(&label.content)) buttons_[wording(*text)] = button.action;
        }
    }

    void show(const ui::HStack& stack) { addAll(stack.children); }
    void show(const ui::VStack& stack) { addAll(stack.children); }

    void show(const ui::ForEach& list) {
        for (const auto& row : list.rows)
            add(row.element);
    }

    void addAll(const std::vector<ui::Element>& elements) {
        for (const ui::Element& element : elements)
            add(element);
    }

    std::string text_;
    std::map<std::string, std::function<void()>> buttons_;
};

bool userAgrees() {
    if (isatty(STDIN_FILENO) == 0) {
        std::cout << "There is no terminal to ask on: consenting for the demonstration.\n";
        return true;
    }
    for (std::string answer;
         std::cout << "Do you consent? (yes/no) " << std::flush && std::getline(std::cin, answer);) {
        if (answer == "y" || answer == "yes") return true;
        if (answer == "n" || answer == "no") return false;
    }
    return false;
}

}  // namespace

bool askForConsent(tarvex::platform::RunLoop& loop, const std::vector<tarvex::DataReader>& readers) {
    bool consented = false;
    const auto view =
        tarvex::Client::shared().informationView(std::nullopt, "The demonstration keeps every sample on this machine.",
                                                 readers, std::nullopt, [&](bool decision) {
                                                     loop.perform([&consented, &loop, decision] {
                                                         consented = decision;
                                                         loop.stop();
                                                     });
                                                 });
    const TerminalScreen screen(view.body());
    std::cout << '\n' << screen.text() << '\n';
    screen.press(userAgrees() ? "I consent" : "Cancel");
    loop.run();
    return consented;
}

}  // namespace console_host
