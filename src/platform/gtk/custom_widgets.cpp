#include "platform/gtk/custom_widgets.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>

namespace tarvex::gtk {

namespace {

constexpr int longest = 32767;  // limit of every display's coordinates

// One axis of a frame.
struct Bounds {
    std::optional<double> least;
    std::optional<double> ideal;
    std::optional<double> most;

    int clamp(int size) const {
        if (most) size = std::min(size, points(*most));
        if (least) size = std::max(size, points(*least));
        return size;
    }

    bool isFixed() const { return least && most && *least == *most; }
    bool takesAll() const { return most && std::isinf(*most); }

    static int points(double length) {
        return static_cast<int>(std::lround(std::clamp(length, 0.0, static_cast<double>(longest))));
    }
};

struct Frame {
    Bounds width;
    Bounds height;
    ui::Alignment alignment;
};

struct Extent {
    int minimum = 0;
    int natural = 0;
};

const Frame& frameOf(GtkWidget* widget) {
    return *static_cast<Frame*>(g_object_get_data(G_OBJECT(widget), "tarvex-frame"));
}

Extent measureChild(GtkWidget* child, GtkOrientation orientation, int forSize) {
    Extent extent;
    gtk_widget_measure(child, orientation, forSize, &extent.minimum, &extent.natural, nullptr, nullptr);
    return extent;
}

// The child takes its natural length, or all of `available` when it expands.
int lengthOf(GtkWidget* child, GtkOrientation orientation, int available, int forSize) {
    const Extent extent = measureChild(child, orientation, forSize);
    if (gtk_widget_compute_expand(child, orientation) != 0) return std::max(available, extent.minimum);
    return std::max(std::min(available, extent.natural), extent.minimum);
}

void measureFrame(GtkWidget* widget, GtkOrientation orientation, int forSize, int* minimum, int* natural,
                  int* /*baseline*/, int* /*baseline*/) {
    const Frame& frame = frameOf(widget);
    GtkWidget* child = gtk_widget_get_first_child(widget);
    const bool isWidth = orientation == GTK_ORIENTATION_HORIZONTAL;
    const Bounds& bounds = isWidth ? frame.width : frame.height;
    const Bounds& across = isWidth ? frame.height : frame.width;
    if (isWidth) forSize = -1;  // the width never depends on the height that is allocated
    if (across.isFixed()) forSize = across.clamp(0);
    if (forSize >= 0 && !isWidth) forSize = lengthOf(child, GTK_ORIENTATION_HORIZONTAL, across.clamp(forSize), -1);
    const Extent extent = measureChild(child, orientation, forSize);
    *minimum = bounds.isFixed() ? bounds.clamp(0) : std::max(extent.minimum, bounds.least ? bounds.clamp(0) : 0);
    *natural = std::max(bounds.clamp(bounds.ideal ? Bounds::points(*bounds.ideal) : extent.natural), *minimum);
}

template <typename Axis>
int offsetOf(Axis alignment, int room) {
    if (alignment == Axis{}) return 0;
    return alignment == Axis::center ? room / 2 : room;
}

void allocate(GtkWidget* widget, int width, int height, int /*baseline*/) {
    const Frame& frame = frameOf(widget);
    GtkWidget* child = gtk_widget_get_first_child(widget);
    const int childWidth = lengthOf(child, GTK_ORIENTATION_HORIZONTAL, frame.width.clamp(width), -1);
    const int childHeight = lengthOf(child, GTK_ORIENTATION_VERTICAL, frame.height.clamp(height), childWidth);
    int x = offsetOf(frame.alignment.horizontal, width - childWidth);
    if (gtk_widget_get_direction(widget) == GTK_TEXT_DIR_RTL) x = width - childWidth - x;
    const GtkAllocation place{.x = x,
                              .y = offsetOf(frame.alignment.vertical, height - childHeight),
                              .width = childWidth,
                              .height = childHeight};
    gtk_widget_size_allocate(child, &place, -1);
}

GtkWidget* wrapped(const Frame& frame, GtkWidget* child) {
    GtkWidget* widget = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_box_append(GTK_BOX(widget), child);
    g_object_set_data_full(G_OBJECT(widget), "tarvex-frame", new Frame(frame),
                           [](gpointer data) { delete static_cast<Frame*>(data); });
    gtk_widget_set_layout_manager(
        widget,
        gtk_custom_layout_new([](GtkWidget*) { return GTK_SIZE_REQUEST_HEIGHT_FOR_WIDTH; }, measureFrame, allocate));
    if (frame.width.isFixed()) gtk_widget_set_hexpand(widget, FALSE);
    if (frame.width.takesAll()) gtk_widget_set_hexpand(widget, TRUE);
    if (frame.height.isFixed()) gtk_widget_set_vexpand(widget, FALSE);
    if (frame.height.takesAll()) gtk_widget_set_vexpand(widget, TRUE);
    return widget;
}

using std::numbers::pi;

struct Drawing {
    double aspect;           // width over height
    int height;              // natural height, in points
    void (*path)(cairo_t*);  // in a box of height 1
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

void measureDrawing(GtkWidget* widget, GtkOrientation orientation, int forSize, int* minimum, int* natural,
                    int* /*baseline*/, int* /*baseline*/) {
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
        widget, gtk_custom_layout_new([](GtkWidget*) { return GTK_SIZE_REQUEST_HEIGHT_FOR_WIDTH; }, measureDrawing,
                                      [](GtkWidget*, int, int, int) {}));
    gtk_drawing_area_set_draw_func(GTK_DRAWING_AREA(widget), draw, nullptr, nullptr);
    return widget;
}

}  // namespace

GtkWidget* makeFrame(const ui::FixedFrame& frame, GtkWidget* child) {
    return wrapped({.width = {.least = frame.width, .ideal = frame.width, .most = frame.width},
                    .height = {.least = frame.height, .ideal = frame.height, .most = frame.height},
                    .alignment = frame.alignment},
                   child);
}

GtkWidget* makeFrame(const ui::FlexibleFrame& frame, GtkWidget* child) {
    return wrapped({.width = {.least = frame.minWidth, .ideal = frame.idealWidth, .most = frame.maxWidth},
                    .height = {.least = frame.minHeight, .ideal = frame.idealHeight, .most = frame.maxHeight},
                    .alignment = frame.alignment},
                   child);
}

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
