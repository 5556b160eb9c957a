#include "signal_chart.h"

#include <libintl.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace gtk_host {

namespace {

constexpr double left = 52;
constexpr double top = 26;
constexpr double bottom = 20;
constexpr double right = 10;

class ChartDrawing {
public:
    ChartDrawing(const Chart& chart, GtkWidget* widget, cairo_t* cairo, int width, int height)
        : chart_(chart), cairo_(cairo), width_(width - left - right), height_(height - top - bottom) {
        gtk_style_context_get_color(gtk_widget_get_style_context(widget), &text_);
    }

    void draw() const {
        cairo_set_font_size(cairo_, 11);
        setColor(text_, 1);
        write(left, 14, chart_.title + " (" + chart_.unit + ")");
        for (const double tick : chart_.ticks)
            drawTick(tick);
        setColor(text_, 0.7);
        write(left, top + height_ + 15, gettext("60 s ago"));
        const std::string now = gettext("now");
        write(left + width_ - widthOf(now), top + height_ + 15, now);
        cairo_rectangle(cairo_, left, top - 2, width_, height_ + 4);
        cairo_clip(cairo_);
        for (const Chart::Line& line : chart_.lines)
            drawLine(line);
        drawLegend();
    }

private:
    double x(double time) const { return left + width_ * (1 - (chart_.now() - time) / Chart::seconds); }
    double y(double value) const {
        const auto scaled = [this](double v) { return chart_.logarithmic ? std::log10(std::max(v, chart_.least)) : v; };
        const double share = (scaled(value) - scaled(chart_.least)) / (scaled(chart_.most) - scaled(chart_.least));
        return top + height_ * (1 - std::clamp(share, 0.0, 1.0));
    }

    void setColor(const GdkRGBA& color, double alpha) const {
        cairo_set_source_rgba(cairo_, color.red, color.green, color.blue, alpha);
    }

    void write(double atX, double atY, const std::string& words) const {
        cairo_move_to(cairo_, atX, atY);
        cairo_show_text(cairo_, words.c_str());
    }

    double widthOf(const std::string& words) const {
        cairo_text_extents_t extents;
        cairo_text_extents(cairo_, words.c_str(), &extents);
        return extents.x_advance;
    }

    void drawTick(double tick) const {
        setColor(text_, 0.15);
        cairo_set_line_width(cairo_, 1);
        cairo_move_to(cairo_, left, y(tick));
        cairo_line_to(cairo_, left + width_, y(tick));
        cairo_stroke(cairo_);
        setColor(text_, 0.7);
        write(8, y(tick) + 4, std::to_string(std::lround(tick)));
    }

    void drawLine(const Chart::Line& line) const {
        const auto& points = line.signal().points;
        setColor(line.color, 1);
        cairo_set_line_width(cairo_, 2);
        cairo_new_path(cairo_);
        for (const Signal::Point& point : points)
            cairo_line_to(cairo_, x(point.time), y(point.value));
        cairo_stroke(cairo_);
        if (points.empty()) return;
        cairo_arc(cairo_, x(points.back().time), y(points.back().value), 3.5, 0, 2 * G_PI);
        cairo_fill(cairo_);
    }

    void drawLegend() const {
        double atX = left + 8;
        for (const Chart::Line& line : chart_.lines) {
            const auto& points = line.signal().points;
            const std::string value = points.empty() ? "–" : std::to_string(std::lround(points.back().value));
            const std::string words = line.name + " " + value;
            setColor(line.color, 1);
            cairo_arc(cairo_, atX + 4, top + 10, 4, 0, 2 * G_PI);
            cairo_fill(cairo_);
            setColor(text_, 1);
            write(atX + 14, top + 14, words);
            atX += 14 + widthOf(words) + 20;
        }
    }

    const Chart& chart_;
    cairo_t* cairo_;
    double width_;
    double height_;
    GdkRGBA text_{};
};

}  // namespace

GtkWidget* makeChart(Chart chart) {
    GtkWidget* area = gtk_drawing_area_new();
    gtk_widget_set_hexpand(area, TRUE);
    gtk_widget_set_vexpand(area, TRUE);
    gtk_widget_set_size_request(area, 280, 130);
    gtk_accessible_update_property(GTK_ACCESSIBLE(area), GTK_ACCESSIBLE_PROPERTY_LABEL, chart.title.c_str(), -1);
    gtk_drawing_area_set_draw_func(
        GTK_DRAWING_AREA(area),
        [](GtkDrawingArea* widget, cairo_t* cairo, int width, int height, gpointer data) {
            ChartDrawing(*static_cast<Chart*>(data), GTK_WIDGET(widget), cairo, width, height).draw();
        },
        new Chart(std::move(chart)), [](gpointer data) { delete static_cast<Chart*>(data); });
    return area;
}

}  // namespace gtk_host
