// The first frame of the consent screen, beside a window of the same widgets by hand: each round in a process of its
// own, on a virtual screen. And how often a process wakes up while the screen is shown and nobody touches it.

#include <benchmark/benchmark.h>
#include <gtk/gtk.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <numbers>
#include <string>
#include <string_view>

#include "process_figures.h"
#include "screen.h"
#include "tarvex/client.h"
#include "tarvex/gtk.h"

namespace tarvex::benchmarks {

namespace {

constexpr const char* description = "The study looks at how light and viewing distance change through a working day.";
constexpr guint idleSeconds = 10;

GtkWidget* tarvexScreen() {
    const auto screen = Client::shared().informationViewController(
        "Light Study", description, {DataReader::distance(1), DataReader::ambientLight(1)},
        Url::parse("https://example.org/"), {});
    return gtk::widget(*screen);
}

GtkWidget* label(const char* text, const char* style = nullptr) {
    GtkWidget* widget = gtk_label_new(text);
    gtk_label_set_wrap(GTK_LABEL(widget), TRUE);
    if (style != nullptr) gtk_widget_add_css_class(widget, style);
    return widget;
}

GtkWidget* drawing(int width, int height) {
    GtkWidget* area = gtk_drawing_area_new();
    gtk_drawing_area_set_content_width(GTK_DRAWING_AREA(area), width);
    gtk_drawing_area_set_content_height(GTK_DRAWING_AREA(area), height);
    gtk_drawing_area_set_draw_func(
        GTK_DRAWING_AREA(area),
        [](GtkDrawingArea*, cairo_t* cairo, int across, int down, gpointer) {
            cairo_arc(cairo, across / 2.0, down / 2.0, down / 2.0, 0, 2 * std::numbers::pi);
            cairo_fill(cairo);
        },
        nullptr, nullptr);
    return area;
}

GtkWidget* row(const char* text) {
    GtkWidget* box = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
    gtk_box_append(GTK_BOX(box), drawing(10, 10));
    gtk_box_append(GTK_BOX(box), label(text));
    return box;
}

GtkWidget* screenByHand() {
    GtkCssProvider* provider = gtk_css_provider_new();
    gtk_css_provider_load_from_data(provider, ".consent { background: #2a6fc4; color: white; border-radius: 8px; }",
                                    -1);
    gtk_style_context_add_provider_for_display(gdk_display_get_default(), GTK_STYLE_PROVIDER(provider),
                                               GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
    g_object_unref(provider);

    GtkWidget* above = gtk_box_new(GTK_ORIENTATION_VERTICAL, 8);
    GtkWidget* cancel = gtk_button_new_with_label("Cancel");
    gtk_widget_set_halign(cancel, GTK_ALIGN_END);
    for (GtkWidget* child :
         {cancel, drawing(100, 75), label("Research Sensor &\nUsage Data Request", "title-1"),
          label("\"Light Study\" would like to collect and share Sensor & Usage Data from your device."),
          label(description), gtk_button_new_with_label("Learn more..."), label("Requested Data", "heading"),
          row("Distance"), row("Ambient Light")})
        gtk_box_append(GTK_BOX(above), child);
    GtkWidget* scroller = gtk_scrolled_window_new();
    gtk_scrolled_window_set_child(GTK_SCROLLED_WINDOW(scroller), above);
    gtk_widget_set_vexpand(scroller, TRUE);
    GtkWidget* consent = gtk_button_new_with_label("I consent");
    gtk_widget_add_css_class(consent, "consent");
    GtkWidget* screen = gtk_box_new(GTK_ORIENTATION_VERTICAL, 8);
    gtk_box_append(GTK_BOX(screen), scroller);
    gtk_box_append(GTK_BOX(screen), consent);
    return screen;
}

void show(GtkWidget* (*makeScreen)()) {
    GtkWidget* window = gtk_window_new();
    gtk_window_set_default_size(GTK_WINDOW(window), 360, 720);
    gtk_window_set_child(GTK_WINDOW(window), makeScreen());
    gtk_window_present(GTK_WINDOW(window));
    bool painted = false;
    GdkFrameClock* clock = gtk_widget_get_frame_clock(window);
    const gulong handler = g_signal_connect(
        clock, "after-paint", G_CALLBACK(+[](GdkFrameClock*, gpointer done) { *static_cast<bool*>(done) = true; }),
        &painted);
    while (!painted)
        g_main_context_iteration(nullptr, TRUE);
    g_signal_handler_disconnect(clock, handler);
}

// GTK, and what the library needs once in a process, are there before.
void prepare() {
    gtk_init();
    gtk::addTo(platform::Platform::current());
    Client::shared();
}

double secondsToFirstFrame(GtkWidget* (*makeScreen)()) {
    prepare();
    const auto begin = std::chrono::steady_clock::now();
    show(makeScreen);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// Counted from a second after the first frame on, when what GTK does at the beginning is over.
double switchesWhileShown() {
    prepare();
    show(tarvexScreen);
    bool over = false;
    const auto runFor = [&](guint seconds) {
        over = false;
        g_timeout_add_once(1000 * seconds, [](gpointer flag) { *static_cast<bool*>(flag) = true; }, &over);
        while (!over)
            g_main_context_iteration(nullptr, TRUE);
    };
    runFor(1);
    const double before = voluntarySwitches();
    runFor(idleSeconds);
    return voluntarySwitches() - before;
}

// What another run of this program prints, which `task` is the only argument of: GTK does not outlive a fork.
double figureOf(const std::string& task) {
    const std::string command = std::filesystem::read_symlink("/proc/self/exe").native() + " " + task;
    FILE* output = popen(command.c_str(), "r");
    double figure = -1;
    if (output != nullptr && std::fscanf(output, "%lf", &figure) != 1) figure = -1;
    if (output != nullptr) pclose(output);
    return figure;
}

double figureHere(std::string_view task) {
    if (task == "first_frame_tarvex") return secondsToFirstFrame(tarvexScreen);
    if (task == "first_frame_by_hand") return secondsToFirstFrame(screenByHand);
    return switchesWhileShown();
}

void firstFrame(benchmark::State& state, const char* task) {
    for (auto _ : state) {
        const double seconds = figureOf(task);
        if (seconds < 0) return state.SkipWithError("the other process failed");
        state.SetIterationTime(seconds);
    }
}

BENCHMARK_CAPTURE(firstFrame, tarvex, "first_frame_tarvex")
    ->Name("first_frame/tarvex")
    ->UseManualTime()
    ->Iterations(10)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(firstFrame, by_hand, "first_frame_by_hand")
    ->Name("first_frame/by_hand")
    ->UseManualTime()
    ->Iterations(10)
    ->Unit(benchmark::kMillisecond);

void shownUntouched(benchmark::State& state) {
    for (auto _ : state) {
        const double switches = figureOf("switches");
        if (switches < 0) return state.SkipWithError("the other process failed");
        // The timer that ends the count is one.
        state.counters["switches_per_second"] = (switches - 1) / idleSeconds;
    }
}

BENCHMARK(shownUntouched)->Name("shown/tarvex")->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

}  // namespace

}  // namespace tarvex::benchmarks

int main(int argumentCount, char** arguments) {
    if (argumentCount == 2 && arguments[1][0] != '-') {
        alarm(60);  // a window that is never painted must end as a failure
        std::printf("%.9f\n", tarvex::benchmarks::figureHere(arguments[1]));
        return 0;
    }
    const tarvex::test::VirtualScreen screen;
    benchmark::Initialize(&argumentCount, arguments);
    if (benchmark::ReportUnrecognizedArguments(argumentCount, arguments)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
