#include "platform/gtk/frame.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace tarvex::gtk {

namespace {

constexpr int longest = 32767;  // what every display's coordinates carry

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

// As much of `available` as the child takes: all of it when it expands.
int lengthOf(GtkWidget* child, GtkOrientation orientation, int available, int forSize) {
    const Extent extent = measureChild(child, orientation, forSize);
    if (gtk_widget_compute_expand(child, orientation) != 0) return std::max(available, extent.minimum);
    return std::max(std::min(available, extent.natural), extent.minimum);
}

void measure(GtkWidget* widget, GtkOrientation orientation, int forSize, int* minimum, int* natural, int* /*baseline*/,
             int* /*baseline*/) {
    const Frame& frame = frameOf(widget);
    GtkWidget* child = gtk_widget_get_first_child(widget);
    const bool isWidth = orientation == GTK_ORIENTATION_HORIZONTAL;
    const Bounds& bounds = isWidth ? frame.width : frame.height;
    const Bounds& across = isWidth ? frame.height : frame.width;
    if (isWidth) forSize = -1;  // its width never follows from the height that it happens to get
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

GtkWidget* make(const Frame& frame, GtkWidget* child) {
    GtkWidget* widget = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_box_append(GTK_BOX(widget), child);
    g_object_set_data_full(G_OBJECT(widget), "tarvex-frame", new Frame(frame),
                           [](gpointer data) { delete static_cast<Frame*>(data); });
    gtk_widget_set_layout_manager(
        widget, gtk_custom_layout_new([](GtkWidget*) { return GTK_SIZE_REQUEST_HEIGHT_FOR_WIDTH; }, measure, allocate));
    if (frame.width.isFixed()) gtk_widget_set_hexpand(widget, FALSE);
    if (frame.width.takesAll()) gtk_widget_set_hexpand(widget, TRUE);
    if (frame.height.isFixed()) gtk_widget_set_vexpand(widget, FALSE);
    if (frame.height.takesAll()) gtk_widget_set_vexpand(widget, TRUE);
    return widget;
}

}  // namespace

GtkWidget* makeFrame(const ui::FixedFrame& frame, GtkWidget* child) {
    return make({.width = {.least = frame.width, .ideal = frame.width, .most = frame.width},
                 .height = {.least = frame.height, .ideal = frame.height, .most = frame.height},
                 .alignment = frame.alignment},
                child);
}

GtkWidget* makeFrame(const ui::FlexibleFrame& frame, GtkWidget* child) {
    return make({.width = {.least = frame.minWidth, .ideal = frame.idealWidth, .most = frame.maxWidth},
                 .height = {.least = frame.minHeight, .ideal = frame.idealHeight, .most = frame.maxHeight},
                 .alignment = frame.alignment},
                child);
}

}  // namespace tarvex::gtk
