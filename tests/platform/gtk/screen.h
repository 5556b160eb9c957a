#pragma once

#include <gtk/gtk.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "main_loop.h"
#include "platform/shared/handle.h"
#include "running_program.h"
#include "temporary_directory.h"

namespace tarvex::test {

using namespace std::chrono_literals;

/// Runs the main loop meanwhile.
void runFor(std::chrono::milliseconds time);

/// An X server without a screen, a window manager on it, and an environment in which GTK looks the same everywhere.
/// Created before GTK is initialised.
class VirtualScreen {
public:
    VirtualScreen();

    /// Runs a program on the screen to its end while the main loop runs; returns its output.
    static std::string run(const std::vector<std::string>& command);

private:
    TemporaryDirectory home_;
    std::optional<RunningProgram> server_;
    std::optional<RunningProgram> windowManager_;
};

/// Makes the test's catalogues the host's default domain and `language` the one of its messages.
void useLanguage(const char* language);

/// All widgets below `root` of type `type`, in the order of the widget tree.
std::vector<GtkWidget*> widgetsOf(GtkWidget* root, GType type);
/// The texts of all labels below `root`.
std::vector<std::string> textsOf(GtkWidget* root);

/// A window with one widget on a virtual screen, and the mouse and keyboard of its user.
class ConsentWindow {
public:
    struct Size {
        int width = 360;
        int height = 720;
    };

    /// Shows `content` and waits until its window is active.
    ConsentWindow(GtkWidget* content, Size size);
    explicit ConsentWindow(GtkWidget* content) : ConsentWindow(content, Size{}) {}
    ~ConsentWindow() { gtk_window_destroy(window_); }
    ConsentWindow(const ConsentWindow&) = delete;
    ConsentWindow& operator=(const ConsentWindow&) = delete;

    GtkWindow* window() const { return window_; }
    GtkWidget* button(const std::string& text) const;
    /// All widgets of `type` in its content.
    std::vector<GtkWidget*> all(GType type) const { return widgetsOf(gtk_window_get_child(window_), type); }

    /// The place of `widget` in the window.
    graphene_rect_t boundsOf(GtkWidget* widget) const;
    bool shows(GtkWidget* widget) const;

    /// Brings the window to the foreground.
    void activate() const;
    void click(GtkWidget* widget) const;
    static void key(const std::string& name);

    /// The window as a picture, which is saved as `file`, too.
    platform::Handle<GdkTexture, g_object_unref> picture(const std::filesystem::path& file) const;

private:
    std::string xid() const;

    GtkWindow* window_;
};

/// Shows a window of another application, which takes the focus; it closes when the returned object ends.
std::shared_ptr<void> showOtherApplication();

}  // namespace tarvex::test
