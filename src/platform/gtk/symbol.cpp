#include "platform/gtk/symbol.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tarvex::gtk {

namespace {

using std::numbers::pi;

// In a box of the drawing's own, whose height is 1.
struct Drawing {
    double aspect;  // width over height
    int height;     // its own, in points
    void (*path)(cairo_t*);
};

struct ShownDrawing {
    Drawing drawing;
    Fit fit;

    int width() const { return static_cast<int>(std::lround(drawing.height * drawing.aspect)); }
};

struct Gear {
    double x;
    double y;
    double radius;
    int teeth;
    double turn;  // in teeth
};

void addGear(cairo_t* cairo, const Gear& gear) {
    const double root = gear.radius * 0.78;
    const double pitch = 2 * pi / gear.teeth;
    const auto pointAt = [&](double teeth, double radius) {
        const double angle = (teeth + gear.turn) * pitch;
        cairo_line_to(cairo, gear.x + radius * std::cos(angle), gear.y + radius * std::sin(angle));
    };
    cairo_new_sub_path(cairo);
    for (int tooth = 0; tooth < gear.teeth; ++tooth) {
        pointAt(tooth - 0.30, root);
        pointAt(tooth - 0.18, gear.radius);
        pointAt(tooth + 0.18, gear.radius);
        pointAt(tooth + 0.30, root);
    }
    cairo_close_path(cairo);
    cairo_new_sub_path(cairo);
    cairo_arc(cairo, gear.x, gear.y, gear.radius * 0.32, 0, 2 * pi);
    cairo_close_path(cairo);
}

void addTwoGears(cairo_t* cairo) {
    cairo_set_fill_rule(cairo, CAIRO_FILL_RULE_EVEN_ODD);
    addGear(cairo, {.x = 0.44, .y = 0.44, .radius = 0.43, .teeth = 10, .turn = 0.5});
    addGear(cairo, {.x = 1.06, .y = 0.72, .radius = 0.27, .teeth = 8, .turn = 0.5});
}

void addOutlinedSquare(cairo_t* cairo) {
    cairo_set_fill_rule(cairo, CAIRO_FILL_RULE_EVEN_ODD);
    cairo_rectangle(cairo, 0.05, 0.05, 0.9, 0.9);
    cairo_rectangle(cairo, 0.13, 0.13, 0.74, 0.74);
}

void addDisc(cairo_t* cairo) {
    cairo_arc(cairo, 0.5, 0.5, 0.5, 0, 2 * pi);
}

const ShownDrawing& drawingOf(gpointer widget) {
    return *static_cast<ShownDrawing*>(g_object_get_data(G_OBJECT(widget), "tarvex-drawing"));
}

void measure(GtkWidget* widget, GtkOrientation orientation, int forSize, int* minimum, int* natural, int* /*baseline*/,
             int* /*baseline*/) {
    const ShownDrawing& shown = drawingOf(widget);
    const bool isWidth = orientation == GTK_ORIENTATION_HORIZONTAL;
    *natural = isWidth ? shown.width() : shown.drawing.height;
    if (forSize >= 0 && shown.fit.resizable && shown.fit.keepsAspect) {
        const double aspect = shown.drawing.aspect;
        *natural = static_cast<int>(std::lround(isWidth ? forSize * aspect : forSize / aspect));
    }
    const bool followsWidth = forSize >= 0 && shown.fit.keepsAspect && !isWidth;
    *minimum = shown.fit.resizable && !followsWidth ? 0 : *natural;
}

void draw(GtkDrawingArea* area, cairo_t* cairo, int width, int height, gpointer /*data*/) noexcept {
    const auto& [drawing, fit] = drawingOf(area);
    double across = width / drawing.aspect;
    double down = height;
    if (fit.keepsAspect || !fit.resizable) across = down = std::min(across, down);
    if (across <= 0 || down <= 0) return;
    cairo_translate(cairo, (width - across * drawing.aspect) / 2, (height - down) / 2);
    cairo_scale(cairo, across, down);
    drawing.path(cairo);
    GdkRGBA color{};
    gtk_style_context_get_color(gtk_widget_get_style_context(GTK_WIDGET(area)), &color);
    gdk_cairo_set_source_rgba(cairo, &color);
    cairo_fill(cairo);
}

GtkWidget* makeDrawing(const Drawing& drawing, Fit fit) {
    auto* widget =
        GTK_WIDGET(g_object_new(GTK_TYPE_DRAWING_AREA, "accessible-role", GTK_ACCESSIBLE_ROLE_PRESENTATION, nullptr));
    gtk_accessible_update_state(GTK_ACCESSIBLE(widget), GTK_ACCESSIBLE_STATE_HIDDEN, TRUE, -1);
    g_object_set_data_full(G_OBJECT(widget), "tarvex-drawing", new ShownDrawing{.drawing = drawing, .fit = fit},
                           [](gpointer data) { delete static_cast<ShownDrawing*>(data); });
    gtk_widget_set_layout_manager(
        widget, gtk_custom_layout_new([](GtkWidget*) { return GTK_SIZE_REQUEST_HEIGHT_FOR_WIDTH; }, measure,
                                      [](GtkWidget*, int, int, int) {}));
    gtk_drawing_area_set_draw_func(GTK_DRAWING_AREA(widget), draw, nullptr, nullptr);
    return widget;
}

}  // namespace

GtkWidget* makeSymbol(std::string_view systemName, Fit fit) {
    const bool isGears = systemName == "gearshape.2.fill";
    GtkWidget* symbol = makeDrawing(
        {.aspect = isGears ? 1.34 : 1, .height = 20, .path = isGears ? addTwoGears : addOutlinedSquare}, fit);
    gtk_widget_set_hexpand(symbol, static_cast<gboolean>(fit.resizable));
    return symbol;
}

GtkWidget* makeCircle() {
    GtkWidget* circle =
        makeDrawing({.aspect = 1, .height = 10, .path = addDisc}, {.resizable = true, .keepsAspect = true});
    gtk_widget_set_hexpand(circle, TRUE);
    gtk_widget_set_vexpand(circle, TRUE);
    return circle;
}

}  // namespace tarvex::gtk
