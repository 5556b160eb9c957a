// Reads an application as a screen reader does: one line for each button, label and heading, "role: name".
// usage: screen_reader APPLICATION

#include <atspi/atspi.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <string>

namespace {

using Accessible = std::unique_ptr<AtspiAccessible, decltype([](AtspiAccessible* a) { g_object_unref(a); })>;

std::string taken(char* text) {
    std::string result = text != nullptr ? text : "";
    g_free(text);
    return result;
}

void read(AtspiAccessible* element) {
    std::string role = taken(atspi_accessible_get_role_name(element, nullptr));
    if (role == "push button") role = "button";  // the name until version 2.53
    std::string words = taken(atspi_accessible_get_name(element, nullptr));
    if (AtspiText* text = words.empty() ? atspi_accessible_get_text_iface(element) : nullptr) {
        words = taken(atspi_text_get_text(text, 0, atspi_text_get_character_count(text, nullptr), nullptr));
        g_object_unref(text);
    }
    std::ranges::replace(words, '\n', ' ');
    if (role == "button" || role == "label" || role == "heading") std::cout << role << ": " << words << '\n';
    for (int i = 0; i < atspi_accessible_get_child_count(element, nullptr); ++i)
        if (const Accessible child{atspi_accessible_get_child_at_index(element, i, nullptr)}) read(child.get());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || atspi_init() != 0) return 1;
    const Accessible desktop(atspi_get_desktop(0));
    for (int i = 0; i < atspi_accessible_get_child_count(desktop.get(), nullptr); ++i) {
        const Accessible application(atspi_accessible_get_child_at_index(desktop.get(), i, nullptr));
        if (taken(atspi_accessible_get_name(application.get(), nullptr)) == argv[1]) read(application.get());
    }
}
