#include "screen.h"

#include <X11/Xlib.h>
#include <gdk/x11/gdkx.h>
#include <libintl.h>

#include "prelude.h"
#include "session_bus.h"

namespace tarvex::test {

namespace {

void setEnvironment(const std::filesystem::path& home) {
    const bool hasDisable = gtk_check_version(4, 16, 0) == nullptr;
    const char* withoutGl = hasDisable ? "GDK_DISABLE" : "GDK_DEBUG";
    for (const auto& [name, value] : std::map<const char*, std::string>{{"GDK_BACKEND", "x11"},
                                                                        {"GSK_RENDERER", "cairo"},
                                                                        {withoutGl, hasDisable ? "gl" : "gl-disable"},
                                                                        {"GSETTINGS_BACKEND", "memory"},
                                                                        {"HOME", home},
                                                                        {"XDG_CONFIG_HOME", home / "config"},
                                                                        {"XDG_CACHE_HOME", home / "cache"},
                                                                        {"XDG_DATA_HOME", home / "data"},
                                                                        {"XDG_RUNTIME_DIR", home},
                                                                        {"LC_ALL", "C.UTF-8"}})
        ::setenv(name, value.c_str(), 1);
    ::setenv("GTK_A11Y", "none", 0);
    for (const char* name : {"AT_SPI_BUS_ADDRESS", "WAYLAND_DISPLAY"})
        ::unsetenv(name);
}

// Releases of keys and of the pointer's button, in all windows.
int releases = 0;

gboolean countReleases(GtkEventControllerLegacy*, GdkEvent* event, gpointer) {
    const GdkEventType type = gdk_event_get_event_type(event);
    if (type == GDK_BUTTON_RELEASE || type == GDK_KEY_RELEASE) ++releases;
    return FALSE;
}

void actAndWait(const std::vector<std::string>& command) {
    const int before = releases;
    VirtualScreen::run(command);
    if (!runUntil([before] { return releases != before; }))
        throw std::runtime_error("no window received the event of " + command[1] + " " + command.back());
    runFor(50ms);
}

}  // namespace

void runFor(std::chrono::milliseconds time) {
    bool over = false;
    g_timeout_add_once(
        static_cast<guint>(time.count()), [](gpointer flag) { *static_cast<bool*>(flag) = true; }, &over);
    while (!over)
        g_main_context_iteration(nullptr, TRUE);
}

VirtualScreen::VirtualScreen() {
    requirePrograms({"Xvfb", "openbox", "xdotool"});
    setEnvironment(home_.path());
    // Without -noreset the server starts anew whenever its last client leaves, and the next one may meet it then.
    server_.emplace(RunningProgram::piped(
        {"Xvfb", "-displayfd", "1", "-screen", "0", "1280x1024x24", "-nolisten", "tcp", "-noreset"}));
    const std::string display = ":" + server_->firstLine();
    if (display == ":") throw std::runtime_error("the X server gives no display");
    ::setenv("DISPLAY", display.c_str(), 1);

    // Until its start is complete, it takes the focus from windows that are shown meanwhile.
    const std::filesystem::path started = home_.path() / "started";
    windowManager_.emplace(
        std::vector<std::string>{"openbox", "--sm-disable", "--startup", "touch " + started.string()});
    if (!eventually([&] { return std::filesystem::exists(started); }))
        throw std::runtime_error("the window manager does not start");
}

std::string VirtualScreen::run(const std::vector<std::string>& command) {
    const auto program = RunningProgram::piped(command);
    auto output = std::async(std::launch::async, [&program] { return program.output(); });
    runUntil([&output] { return output.wait_for(0s) == std::future_status::ready; });
    return output.get();
}

void useLanguage(const char* language) {
    for (const auto& [name, value] :
         {std::pair{"LOCPATH", TARVEX_TEST_LOCALES}, {"LC_ALL", "en_US.UTF-8"}, {"LANGUAGE", language}})
        ::setenv(name, value, 1);
    setlocale(LC_ALL, "");
    bindtextdomain("host", TARVEX_TEST_CATALOGUES);
    bind_textdomain_codeset("host", "UTF-8");
    textdomain("host");
}

std::vector<GtkWidget*> widgetsOf(GtkWidget* root, GType type) {
    std::vector<GtkWidget*> found;
    if (g_type_is_a(G_OBJECT_TYPE(root), type) != 0) found.push_back(root);
    for (GtkWidget* child = gtk_widget_get_first_child(root); child != nullptr;
         child = gtk_widget_get_next_sibling(child))
        std::ranges::copy(widgetsOf(child, type), std::back_inserter(found));
    return found;
}

std::vector<std::string> textsOf(GtkWidget* root) {
    std::vector<std::string> texts;
    for (GtkWidget* label : widgetsOf(root, GTK_TYPE_LABEL))
        texts.emplace_back(gtk_label_get_text(GTK_LABEL(label)));
    return texts;
}

ConsentWindow::ConsentWindow(GtkWidget* content, Size size) : window_(GTK_WINDOW(gtk_window_new())) {
    gtk_window_set_decorated(window_, FALSE);
    gtk_window_set_default_size(window_, size.width, size.height);
    gtk_window_set_child(window_, content);
    GtkEventController* events = gtk_event_controller_legacy_new();
    gtk_event_controller_set_propagation_phase(events, GTK_PHASE_CAPTURE);
    g_signal_connect(events, "event", G_CALLBACK(countReleases), nullptr);
    gtk_widget_add_controller(GTK_WIDGET(window_), events);
    gtk_window_present(window_);
    runUntil([this] { return gtk_widget_get_mapped(GTK_WIDGET(window_)) != 0; });
    runFor(100ms);
    activate();
}

void ConsentWindow::activate() const {
    for (int tries = 0; tries < 50 && gtk_window_is_active(window_) == 0; ++tries) {
        VirtualScreen::run({"xdotool", "windowactivate", xid()});
        runFor(100ms);
    }
    if (gtk_window_is_active(window_) == 0) throw std::runtime_error("the window did not become active");
}

GtkWidget* ConsentWindow::button(const std::string& text) const {
    for (GtkWidget* button : all(GTK_TYPE_BUTTON)) {
        const auto texts = textsOf(button);
        if (!texts.empty() && texts.front() == text) return button;
    }
    throw std::logic_error("there is no button " + text);
}

graphene_rect_t ConsentWindow::boundsOf(GtkWidget* widget) const {
    graphene_rect_t bounds{};
    if (!gtk_widget_compute_bounds(widget, GTK_WIDGET(window_), &bounds)) throw std::logic_error("no bounds");
    return bounds;
}

bool ConsentWindow::shows(GtkWidget* widget) const {
    const graphene_rect_t whole = boundsOf(GTK_WIDGET(window_));
    const graphene_rect_t part = boundsOf(widget);
    return graphene_rect_contains_rect(&whole, &part);
}

void ConsentWindow::click(GtkWidget* widget) const {
    // A window that has just been shown may still be laid out.
    graphene_rect_t bounds{};
    graphene_rect_t before{};
    do {
        before = bounds;
        runFor(50ms);
        bounds = boundsOf(widget);
    } while (!graphene_rect_equal(&bounds, &before));
    const auto x = std::lround(bounds.origin.x + bounds.size.width / 2);
    const auto y = std::lround(bounds.origin.y + bounds.size.height / 2);
    actAndWait({"xdotool", "mousemove", "--window", xid(), std::to_string(x), std::to_string(y), "click", "1"});
}

void ConsentWindow::key(const std::string& name) {
    actAndWait({"xdotool", "key", name});
}

std::string ConsentWindow::xid() const {
    return std::to_string(gdk_x11_surface_get_xid(gtk_native_get_surface(GTK_NATIVE(window_))));
}

platform::Handle<GdkTexture, g_object_unref> ConsentWindow::picture(const std::filesystem::path& file) const {
    const platform::Handle<GdkPaintable, g_object_unref> paintable(gtk_widget_paintable_new(GTK_WIDGET(window_)));
    GtkSnapshot* snapshot = gtk_snapshot_new();
    const graphene_rect_t bounds = boundsOf(GTK_WIDGET(window_));
    gdk_paintable_snapshot(paintable.get(), snapshot, bounds.size.width, bounds.size.height);
    GskRenderNode* node = gtk_snapshot_free_to_node(snapshot);
    GskRenderer* renderer = gtk_native_get_renderer(GTK_NATIVE(window_));
    platform::Handle<GdkTexture, g_object_unref> texture(gsk_renderer_render_texture(renderer, node, &bounds));
    gsk_render_node_unref(node);
    std::filesystem::create_directories(file.parent_path());
    gdk_texture_save_to_png(texture.get(), file.c_str());
    return texture;
}

std::shared_ptr<void> showOtherApplication() {
    const std::shared_ptr<Display> display(XOpenDisplay(nullptr), XCloseDisplay);
    const Window window =
        XCreateSimpleWindow(display.get(), DefaultRootWindow(display.get()), 700, 100, 200, 100, 0, 0, 0);
    XMapWindow(display.get(), window);
    XFlush(display.get());
    runFor(200ms);
    VirtualScreen::run({"xdotool", "windowactivate", std::to_string(window)});
    return display;
}

}  // namespace tarvex::test
