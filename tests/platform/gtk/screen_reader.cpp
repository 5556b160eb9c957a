// Reads an application as a screen reader does: one line for each element that it presents, "role: name".
// usage: screen_reader APPLICATION

#include <atspi/atspi.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>

namespace {

using Accessible = std::unique_ptr<AtspiAccessible, decltype([](AtspiAccessible* a) { g_object_unref(a); })>;
using Words = std::unique_ptr<char, decltype([](char* text) { g_free(text); })>;

std::string textOf(AtspiAccessible* element) {
    AtspiText* text = atspi_accessible_get_text_iface(element);
    if (text == nullptr) return "";
    const Words words(atspi_text_get_text(text, 0, atspi_text_get_character_count(text, nullptr), nullptr));
    g_object_unref(text);
    return words ? words.get() : "";
}

void read(AtspiAccessible* element, int depth) {
    const Words role(atspi_accessible_get_role_name(element, nullptr));
    const Words name(atspi_accessible_get_name(element, nullptr));
    const std::string text = textOf(element);
    std::string words = name && *name != '\0' ? name.get() : text;
    std::ranges::replace(words, '\n', ' ');
    std::printf("%*s%s: %s\n", depth, "", role ? role.get() : "?", words.c_str());
    const int children = atspi_accessible_get_child_count(element, nullptr);
    for (int i = 0; i < children; ++i) {
        if (const Accessible child{atspi_accessible_get_child_at_index(element, i, nullptr)})
            read(child.get(), depth + 1);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || atspi_init() != 0) return 1;
    const Accessible desktop(atspi_get_desktop(0));
    const int applications = atspi_accessible_get_child_count(desktop.get(), nullptr);
    for (int i = 0; i < applications; ++i) {
        const Accessible application(atspi_accessible_get_child_at_index(desktop.get(), i, nullptr));
        const Words name(atspi_accessible_get_name(application.get(), nullptr));
        if (name && std::string(name.get()) == argv[1]) read(application.get(), 0);
    }
}
