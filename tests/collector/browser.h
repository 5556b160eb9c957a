#pragma once

#include <sys/types.h>

#include <nlohmann/json.hpp>

#include "prelude.h"

namespace tarvex::collector::test {

/// A Chromium without a window and with a profile of its own, driven through a pipe. Every wait ends within half a
/// minute, with an exception.
class Browser {
public:
    using Json = nlohmann::json;

    static bool isInstalled();

    Browser();
    ~Browser();
    Browser(const Browser&) = delete;
    Browser& operator=(const Browser&) = delete;

    /// From the next page on.
    void emulate(int width, int height, bool isDark);
    void open(const std::string& address);
    /// The value of an expression, a promise awaited; an exception with its text when it throws.
    Json evaluate(const std::string& expression);
    /// Waits until the expression is true.
    void await(const std::string& expression);
    void press(const std::string& key);
    void type(const std::string& text);
    void click(const std::string& selector);
    void doubleClick(const std::string& selector);
    /// With the button held, across the middle of the element, from one part of its width to another.
    void drag(const std::string& selector, double from, double until);
    /// Of the whole page, or of what the window shows.
    void takePicture(const std::filesystem::path& file, bool isWhole = true);

    std::vector<std::string> complaints;  ///< what the page wrote to the console or the browser to its log
    std::vector<std::string> addresses;   ///< all that were asked for

private:
    Json call(const std::string& method, const Json& parameters, bool isOfPage = true);
    void take(const Json& event);
    Json receive();
    Json centreOf(const std::string& selector);
    void mouse(const std::string& type, double x, double y, int clicks = 1);

    TemporaryDirectory profile_;
    pid_t process_ = 0;
    int commands_ = -1;
    int answers_ = -1;
    int lastCall_ = 0;
    std::string received_;
    std::string session_;
    int width_ = 1'280;
};

}  // namespace tarvex::collector::test
