#include "platform/gtk/style.h"

#include <gtk/gtk.h>

#include <algorithm>
#include <array>

namespace tarvex::gtk {

namespace {

// GTK defines no blue: the theme's accent colour takes its place, which is blue unless the theme or the user chose
// another; white is the theme's text colour on the accent. White text on blue needs a somewhat darker blue than the
// theme's; a blue foreground is mixed with the text colour, for contrast in light and in dark themes.
constexpr const char* rules = R"(
.tarvex-foreground-blue { color: mix(@theme_selected_bg_color, @theme_fg_color, 0.35); }
.tarvex-foreground-gray { color: mix(@theme_fg_color, @theme_bg_color, 0.35); }
.tarvex-foreground-white { color: @theme_selected_fg_color; }
.tarvex-background-blue { background-color: shade(@theme_selected_bg_color, 0.85); }
.tarvex-background-gray { background-color: mix(@theme_fg_color, @theme_bg_color, 0.35); }
.tarvex-background-white { background-color: @theme_selected_fg_color; }
.tarvex-font-body { font-size: 1rem; }
.tarvex-font-title { font-size: 1.65rem; }
.tarvex-bold { font-weight: bold; }
button.tarvex-plain-button {
    background-image: none; border: none; box-shadow: none; text-shadow: none; padding: 0; min-width: 0; min-height: 0;
}
button.tarvex-plain-button.tarvex-background-blue {
    border: 1px solid mix(@theme_selected_bg_color, @theme_fg_color, 0.35);
}
button.tarvex-plain-button.tarvex-background-blue:hover { background-color: shade(@theme_selected_bg_color, 0.92); }
button.tarvex-plain-button.tarvex-background-blue:active { background-color: shade(@theme_selected_bg_color, 0.7); }
button.tarvex-plain-button:focus-visible { outline: 2px solid @theme_fg_color; outline-offset: 2px; }
)";

constexpr std::array colorNames{"blue", "gray", "white"};

// Once for each display: a process may close one and open another.
void addRulesOnce(const std::string& name, const std::string& css) {
    GdkDisplay* display = gdk_display_get_default();
    if (g_object_get_data(G_OBJECT(display), name.c_str()) != nullptr) return;
    g_object_set_data(G_OBJECT(display), name.c_str(), display);
    GtkCssProvider* provider = gtk_css_provider_new();
    gtk_css_provider_load_from_data(provider, css.c_str(), -1);
    gtk_style_context_add_provider_for_display(display, GTK_STYLE_PROVIDER(provider),
                                               GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
    g_object_unref(provider);
}

std::string known(const std::string& name) {
    addRulesOnce("tarvex-style", rules);
    return name;
}

}  // namespace

std::string foregroundClass(ui::Color color) {
    return known(std::string("tarvex-foreground-") + colorNames.at(static_cast<std::size_t>(color)));
}

std::string backgroundClass(ui::Color color) {
    return known(std::string("tarvex-background-") + colorNames.at(static_cast<std::size_t>(color)));
}

std::string fontClass(ui::TextStyle style) {
    return known(style == ui::TextStyle::title ? "tarvex-font-title" : "tarvex-font-body");
}

std::string boldClass() {
    return known("tarvex-bold");
}

std::string plainButtonClass() {
    return known("tarvex-plain-button");
}

std::string cornerClass(double radius) {
    std::array<char, G_ASCII_DTOSTR_BUF_SIZE> number{};
    g_ascii_formatd(number.data(), static_cast<int>(number.size()), "%.2f", std::max(radius, 0.0));
    std::string name = std::string("tarvex-corner-") + number.data();
    std::ranges::replace(name, '.', '-');
    addRulesOnce(name, "." + name + " { border-radius: " + number.data() + "px; }");
    return name;
}

}  // namespace tarvex::gtk
