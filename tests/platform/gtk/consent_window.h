#pragma once

#include <gtk/gtk.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "virtual_screen.h"

struct _XDisplay;

namespace tarvex::test {

using std::chrono_literals::operator""s;
using std::chrono_literals::operator""ms;

/// Runs the main loop until `holds`; false when it still does not after 20 s.
bool runUntil(const std::function<bool()>& holds);
void runFor(std::chrono::milliseconds time);

/// Makes the test's catalogues the host's default domain, and `language` the one of its messages.
void useLanguage(const char* language);

/// All widgets below `root` of type `type`, in the order of the widget tree.
std::vector<GtkWidget*> widgetsOf(GtkWidget* root, GType type);
/// What the labels below `root` show.
std::vector<std::string> textsOf(GtkWidget* root);

/// A window with one widget, on a virtual screen, and the person before it.
class ConsentWindow {
public:
    struct Size {
        int width = 360;
        int height = 720;
    };

    explicit ConsentWindow(GtkWidget* content) : ConsentWindow(content, Size{}) {}
    /// Shows `content` and waits until it can be used.
    ConsentWindow(GtkWidget* content, Size size);
    ~ConsentWindow();
    ConsentWindow(const ConsentWindow&) = delete;
    ConsentWindow& operator=(const ConsentWindow&) = delete;

    GtkWindow* window() const { return window_; }
    GtkWidget* button(const std::string& text) const;

    /// Where `widget` lies in the window.
    graphene_rect_t boundsOf(GtkWidget* widget) const;
    bool shows(GtkWidget* widget) const;

    /// Brings the window to the foreground.
    void activate() const;
    void click(GtkWidget* widget) const;
    static void key(const std::string& name);

    /// The window as a picture.
    GdkTexture* picture() const;
    void savePicture(const std::filesystem::path& file) const;

private:
    std::string xid() const;

    GtkWindow* window_;
};

/// A window of another application, which takes the focus. Goes with the object.
class OtherApplication {
public:
    OtherApplication();
    ~OtherApplication();
    OtherApplication(const OtherApplication&) = delete;
    OtherApplication& operator=(const OtherApplication&) = delete;

private:
    ::_XDisplay* display_;
};

}  // namespace tarvex::test
