#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <string>
#include <vector>

#include "recorded_samples.h"

namespace gtk_host {

/// A chart of the last minute: lines over time, with a scale at the left.
struct Chart {
    struct Line {
        std::string name;
        GdkRGBA color;
        std::function<const Signal&()> signal;
    };

    std::string title;
    std::string unit;
    bool logarithmic = false;
    double least = 0;
    double most = 1;
    std::vector<double> ticks;
    std::vector<Line> lines;
    std::function<double()> now;  ///< the time at the right edge

    static constexpr double seconds = 60;
};

/// A widget that draws `chart` whenever it is queued to.
GtkWidget* makeChart(Chart chart);

}  // namespace gtk_host
