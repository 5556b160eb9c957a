#include "platform/gtk/element_renderer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <iterator>
#include <limits>
#include <ranges>
#include <span>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "platform/gtk/custom_widgets.h"
#include "platform/gtk/style.h"
#include "platform/gtk/wording.h"

namespace tarvex::gtk {

namespace {

using Modifiers = std::span<const ui::Modifier>;

constexpr double defaultPadding = 16;
constexpr double defaultSpacing = 8;
constexpr double screenWidth = 400;

template <typename Kind>
const Kind* find(Modifiers modifiers) {
    for (const ui::Modifier& modifier : modifiers) {
        if (const auto* found = std::get_if<Kind>(&modifier)) return found;
    }
    return nullptr;
}

int points(double length) {
    return static_cast<int>(std::lround(length));
}

// Properties that an element inherits from the elements around it and that no style class passes on.
struct Surroundings {
    ui::HorizontalAlignment textAlignment = ui::HorizontalAlignment::leading;

    Surroundings within(Modifiers modifiers) const {
        const auto* alignment = find<ui::MultilineTextAlignment>(modifiers);
        return alignment != nullptr ? Surroundings{.textAlignment = alignment->alignment} : *this;
    }
};

GtkWidget* render(const ui::Element& element, const Surroundings& surroundings);

// Each modifier wraps the widget of the one before, or changes that widget where the result looks the same.
struct ModifierRenderer {
    GtkWidget* widget;

    GtkWidget* operator()(const ui::Padding& padding) const {
        const int length = points(padding.length.value_or(defaultPadding));
        const auto& [top, leading, bottom, trailing] = padding.edges;
        if (top) gtk_widget_set_margin_top(widget, gtk_widget_get_margin_top(widget) + length);
        if (leading) gtk_widget_set_margin_start(widget, gtk_widget_get_margin_start(widget) + length);
        if (bottom) gtk_widget_set_margin_bottom(widget, gtk_widget_get_margin_bottom(widget) + length);
        if (trailing) gtk_widget_set_margin_end(widget, gtk_widget_get_margin_end(widget) + length);
        return widget;
    }

    GtkWidget* operator()(const ui::FixedFrame& frame) const { return makeFrame(frame, widget); }
    GtkWidget* operator()(const ui::FlexibleFrame& frame) const { return makeFrame(frame, widget); }

    GtkWidget* operator()(const ui::Background& background) const {
        return withClass(wrapped(), backgroundClass(background.color));
    }

    GtkWidget* operator()(const ui::ClipShape& clip) const {
        GtkWidget* shape = withClass(wrapped(), cornerClass(clip.shape.cornerRadius));
        gtk_widget_set_overflow(shape, GTK_OVERFLOW_HIDDEN);
        return shape;
    }

    GtkWidget* operator()(const ui::ForegroundColor& foreground) const {
        return withClass(widget, foregroundClass(foreground.color));
    }
    GtkWidget* operator()(const ui::Font& font) const { return withClass(widget, fontClass(font.style)); }
    GtkWidget* operator()(const ui::Bold& /*bold*/) const { return withClass(widget, boldClass()); }

    // These three were applied when their content was made.
    GtkWidget* operator()(const ui::MultilineTextAlignment& /*alignment*/) const { return widget; }
    GtkWidget* operator()(const ui::Resizable& /*resizable*/) const { return widget; }
    GtkWidget* operator()(const ui::ScaledToFit& /*scaled*/) const { return widget; }

private:
    static GtkWidget* withClass(GtkWidget* widget, const std::string& name) {
        gtk_widget_add_css_class(widget, name.c_str());
        return widget;
    }

    GtkWidget* wrapped() const {
        GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
        gtk_box_append(GTK_BOX(box), widget);
        return box;
    }
};

// The inner one of two colours or fonts wins; as style classes of one widget they would have no order.
bool isCovered(const ui::Modifier& modifier, Modifiers inner) {
    if (std::holds_alternative<ui::ForegroundColor>(modifier)) return find<ui::ForegroundColor>(inner) != nullptr;
    return std::holds_alternative<ui::Font>(modifier) && find<ui::Font>(inner) != nullptr;
}

GtkWidget* modified(GtkWidget* widget, Modifiers modifiers) {
    for (std::size_t i = 0; i < modifiers.size(); ++i) {
        if (!isCovered(modifiers[i], modifiers.first(i))) widget = std::visit(ModifierRenderer{widget}, modifiers[i]);
    }
    return widget;
}

GtkWidget* renderText(const ui::Text& text, Modifiers modifiers, ui::HorizontalAlignment alignment) {
    const auto* font = find<ui::Font>(modifiers);
    const bool isTitle = font != nullptr && font->style == ui::TextStyle::title;
    auto* widget = GTK_WIDGET(g_object_new(GTK_TYPE_LABEL, "label", withBreaks(wording(text)).c_str(), "wrap", TRUE,
                                           "wrap-mode", PANGO_WRAP_WORD_CHAR, "accessible-role",
                                           isTitle ? GTK_ACCESSIBLE_ROLE_HEADING : GTK_ACCESSIBLE_ROLE_LABEL, nullptr));
    constexpr std::array justifications{GTK_JUSTIFY_LEFT, GTK_JUSTIFY_CENTER, GTK_JUSTIFY_RIGHT};
    const auto place = static_cast<std::size_t>(alignment);
    gtk_label_set_justify(GTK_LABEL(widget), justifications.at(place));
    gtk_label_set_xalign(GTK_LABEL(widget), static_cast<float>(place) / 2);
    return widget;
}

// Texts of a button's label: its accessible name.
void addTexts(const ui::Element& element, std::string& words) {
    const auto addAll = [&words](const std::vector<ui::Element>& elements) {
        for (const ui::Element& child : elements)
            addTexts(child, words);
    };
    if (const auto* text = std::get_if<ui::Text>(&element.content))
        words += (words.empty() ? "" : " ") + wording(*text);
    else if (const auto* row = std::get_if<ui::HStack>(&element.content))
        addAll(row->children);
    else if (const auto* column = std::get_if<ui::VStack>(&element.content))
        addAll(column->children);
}

std::string textsOf(const std::vector<ui::Element>& elements) {
    std::string words;
    for (const ui::Element& element : elements)
        addTexts(element, words);
    return words;
}

// A button's background and shape are clickable: the button itself carries the modifiers up to the last of these.
std::size_t carriedModifiers(Modifiers modifiers) {
    const auto last = std::ranges::find_if(modifiers | std::views::reverse, [](const ui::Modifier& modifier) {
        return std::holds_alternative<ui::Background>(modifier) || std::holds_alternative<ui::ClipShape>(modifier);
    });
    return static_cast<std::size_t>(std::distance(modifiers.begin(), last.base()));
}

void press(GtkButton* /*button*/, gpointer action) noexcept {
    (*static_cast<std::function<void()>*>(action))();
}

void applyToButton(GtkWidget* button, const ui::Modifier& modifier) {
    if (const auto* background = std::get_if<ui::Background>(&modifier))
        gtk_widget_add_css_class(button, backgroundClass(background->color).c_str());
    if (const auto* foreground = std::get_if<ui::ForegroundColor>(&modifier))
        gtk_widget_add_css_class(button, foregroundClass(foreground->color).c_str());
    if (const auto* clip = std::get_if<ui::ClipShape>(&modifier))
        gtk_widget_add_css_class(button, cornerClass(clip->shape.cornerRadius).c_str());
}

GtkWidget* renderButton(const ui::Button& content, Modifiers carried) {
    GtkWidget* button = gtk_button_new();
    if (!content.name.empty()) gtk_widget_set_name(button, content.name.c_str());
    GtkWidget* label = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, points(defaultSpacing));
    gtk_widget_set_halign(label, GTK_ALIGN_CENTER);
    for (const ui::Element& element : content.label)
        gtk_box_append(GTK_BOX(label), render(element, {.textAlignment = ui::HorizontalAlignment::center}));
    if (!carried.empty()) gtk_widget_add_css_class(button, plainButtonClass().c_str());
    for (const ui::Modifier& modifier : carried) {
        const bool byTheButton = std::holds_alternative<ui::Background>(modifier) ||
                                 std::holds_alternative<ui::ForegroundColor>(modifier) ||
                                 std::holds_alternative<ui::ClipShape>(modifier);
        if (byTheButton)
            applyToButton(button, modifier);
        else
            label = std::visit(ModifierRenderer{label}, modifier);
    }
    gtk_button_set_child(GTK_BUTTON(button), label);
    gtk_accessible_update_property(GTK_ACCESSIBLE(button), GTK_ACCESSIBLE_PROPERTY_LABEL,
                                   textsOf(content.label).c_str(), -1);
    if (content.action) {
        g_signal_connect_data(
            button, "clicked", G_CALLBACK(press), new std::function<void()>(content.action),
            [](gpointer action, GClosure*) { delete static_cast<std::function<void()>*>(action); },
            static_cast<GConnectFlags>(0));
    }
    return button;
}

template <typename Axis>
GtkAlign alignOf(Axis alignment) {
    if (alignment == Axis::center) return GTK_ALIGN_CENTER;
    return alignment == Axis{} ? GTK_ALIGN_START : GTK_ALIGN_END;
}

GtkWidget* renderSpacer(const ui::Spacer& spacer, GtkOrientation orientation) {
    auto* room = GTK_WIDGET(g_object_new(GTK_TYPE_BOX, "accessible-role", GTK_ACCESSIBLE_ROLE_PRESENTATION, nullptr));
    gtk_accessible_update_state(GTK_ACCESSIBLE(room), GTK_ACCESSIBLE_STATE_HIDDEN, TRUE, -1);
    const int least = points(spacer.minLength.value_or(0));
    if (orientation == GTK_ORIENTATION_HORIZONTAL) {
        gtk_widget_set_hexpand(room, TRUE);
        gtk_widget_set_size_request(room, least, -1);
    } else {
        gtk_widget_set_vexpand(room, TRUE);
        gtk_widget_set_size_request(room, -1, least);
    }
    return room;
}

// A stack under construction; `across` aligns its children.
struct Stack {
    GtkWidget* box;
    GtkOrientation orientation;
    GtkAlign across;

    void append(GtkWidget* child) const {
        const bool isColumn = orientation == GTK_ORIENTATION_VERTICAL;
        const GtkOrientation other = isColumn ? GTK_ORIENTATION_HORIZONTAL : GTK_ORIENTATION_VERTICAL;
        const bool isText = isColumn && GTK_IS_LABEL(child) != 0;
        // A text receives the whole width, so that it wraps no earlier than it must, and aligns itself in it.
        if (isText) gtk_label_set_xalign(GTK_LABEL(child), xalign());
        const bool fills = isText || gtk_widget_compute_expand(child, other) != 0;
        const GtkAlign align = fills ? GTK_ALIGN_FILL : across;
        if (isColumn)
            gtk_widget_set_halign(child, align);
        else
            gtk_widget_set_valign(child, align);
        gtk_box_append(GTK_BOX(box), child);
    }

    float xalign() const {
        if (across == GTK_ALIGN_CENTER) return 0.5F;
        return across == GTK_ALIGN_START ? 0.0F : 1.0F;
    }

    void append(const ui::Element& element, const Surroundings& surroundings) const {
        if (const auto* spacer = std::get_if<ui::Spacer>(&element.content)) {
            append(modified(renderSpacer(*spacer, orientation), element.modifiers));
        } else if (const auto* list = std::get_if<ui::ForEach>(&element.content)) {
            for (const ui::IdentifiedElement& row : list->rows)
                append(row.element, surroundings);
        } else {
            GtkWidget* child = render(element, surroundings);
            // A row measures the widths of its children for its height, which takes seconds for a long column.
            const bool isColumnInRow =
                orientation == GTK_ORIENTATION_HORIZONTAL && std::holds_alternative<ui::VStack>(element.content);
            append(isColumnInRow ? makeFrame(ui::FlexibleFrame{}, child) : child);
        }
    }
};

template <typename Content>
Stack makeStack(const Content& content, GtkOrientation orientation) {
    return {.box = gtk_box_new(orientation, points(content.spacing.value_or(defaultSpacing))),
            .orientation = orientation,
            .across = alignOf(content.alignment)};
}

template <typename Content>
GtkWidget* renderStack(const Content& content, GtkOrientation orientation, const Surroundings& surroundings) {
    const Stack stack = makeStack(content, orientation);
    for (const ui::Element& child : content.children)
        stack.append(child, surroundings);
    return stack.box;
}

struct ContentRenderer {
    Modifiers modifiers;
    Surroundings surroundings;

    GtkWidget* operator()(const ui::Spacer& spacer) const { return renderSpacer(spacer, GTK_ORIENTATION_VERTICAL); }
    GtkWidget* operator()(const ui::Text& text) const {
        return renderText(text, modifiers, surroundings.textAlignment);
    }
    GtkWidget* operator()(const ui::Image& image) const {
        return makeSymbol(image.systemName, {.resizable = find<ui::Resizable>(modifiers) != nullptr,
                                             .keepsAspect = find<ui::ScaledToFit>(modifiers) != nullptr});
    }
    GtkWidget* operator()(const ui::Circle& circle) const {
        GtkWidget* disc = makeCircle();
        gtk_widget_add_css_class(disc, foregroundClass(circle.fill).c_str());
        return disc;
    }
    GtkWidget* operator()(const ui::Button& button) const { return renderButton(button, {}); }
    GtkWidget* operator()(const ui::HStack& stack) const {
        return renderStack(stack, GTK_ORIENTATION_HORIZONTAL, surroundings);
    }
    GtkWidget* operator()(const ui::VStack& stack) const {
        return renderStack(stack, GTK_ORIENTATION_VERTICAL, surroundings);
    }
    GtkWidget* operator()(const ui::ForEach& list) const {
        ui::VStack column;
        column.children.push_back({list, {}});
        return (*this)(column);
    }
};

GtkWidget* render(const ui::Element& element, const Surroundings& surroundings) {
    const Modifiers modifiers = element.modifiers;
    if (const auto* button = std::get_if<ui::Button>(&element.content)) {
        const std::size_t carried = carriedModifiers(modifiers);
        return modified(renderButton(*button, modifiers.first(carried)), modifiers.subspan(carried));
    }
    const ContentRenderer renderer{.modifiers = modifiers, .surroundings = surroundings.within(modifiers)};
    return modified(std::visit(renderer, element.content), modifiers);
}

GtkWidget* scrolling(GtkWidget* content) {
    GtkWidget* scroller = gtk_scrolled_window_new();
    auto* window = GTK_SCROLLED_WINDOW(scroller);
    gtk_scrolled_window_set_policy(window, GTK_POLICY_NEVER, GTK_POLICY_AUTOMATIC);
    gtk_scrolled_window_set_propagate_natural_height(window, TRUE);
    gtk_scrolled_window_set_child(window, content);
    gtk_widget_set_vexpand(scroller, TRUE);
    gtk_widget_set_hexpand(scroller, TRUE);
    return scroller;
}

GtkWidget* withPinnedEnd(const ui::VStack& screen) {
    const Stack whole = makeStack(screen, GTK_ORIENTATION_VERTICAL);
    const Stack above = makeStack(screen, GTK_ORIENTATION_VERTICAL);
    for (const ui::Element& child : std::span(screen.children).first(screen.children.size() - 1))
        above.append(child, {});
    whole.append(scrolling(above.box));
    whole.append(screen.children.back(), {});
    return whole.box;
}

bool endsInButton(const ui::VStack& screen) {
    return screen.children.size() > 1 && std::holds_alternative<ui::Button>(screen.children.back().content);
}

}  // namespace

GtkWidget* render(const ui::Element& element) {
    return render(element, Surroundings{});
}

GtkWidget* renderScreen(const ui::Element& element) {
    const auto* stack = std::get_if<ui::VStack>(&element.content);
    const bool pinned = stack != nullptr && endsInButton(*stack);
    GtkWidget* screen = pinned ? modified(withPinnedEnd(*stack), element.modifiers) : scrolling(render(element));
    // Without an ideal width, the screen would request that of its longest text in one line.
    constexpr double infinity = std::numeric_limits<double>::infinity();
    return makeFrame(ui::FlexibleFrame{.idealWidth = screenWidth, .maxWidth = infinity, .maxHeight = infinity}, screen);
}

}  // namespace tarvex::gtk
