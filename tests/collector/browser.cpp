#include "browser.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace tarvex::collector::test {
namespace {

using Json = Browser::Json;

constexpr auto program = "/usr/bin/chromium";
constexpr auto patience = 30s;

std::string decoded(const std::string& base64) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    std::uint32_t bits = 0;
    int count = 0;
    for (const char digit : base64) {
        if (digit == '=') break;
        bits = bits << 6 | static_cast<std::uint32_t>(digits.find(digit));
        count += 6;
        if (count < 8) continue;
        count -= 8;
        bytes += static_cast<char>(bits >> count & 255);
    }
    return bytes;
}

[[noreturn]] void become(const std::filesystem::path& profile, int commands, int answers) {
    ::setpgid(0, 0);
    // 3 and 4 are where it looks for the pipes, which may themselves lie there.
    const int first = ::fcntl(commands, F_DUPFD, 10);
    const int second = ::fcntl(answers, F_DUPFD, 10);
    ::dup2(first, 3);
    ::dup2(second, 4);
    const int silence = ::open("/dev/null", O_RDWR);
    ::dup2(silence, STDOUT_FILENO);
    ::dup2(silence, STDERR_FILENO);
    ::closefrom(5);
    const std::string directory = "--user-data-dir=" + profile.string();
    ::execl(program, program, "--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
            "--no-first-run", "--disable-background-networking", "--disable-component-update",
            "--remote-debugging-pipe", directory.c_str(), "about:blank", nullptr);
    ::_exit(127);
}

}  // namespace

bool Browser::isInstalled() {
    return ::access(program, X_OK) == 0;
}

Browser::Browser() {
    std::array<int, 2> commands{};
    std::array<int, 2> answers{};
    if (::pipe(commands.data()) != 0 || ::pipe(answers.data()) != 0) throw std::runtime_error("no pipe");
    process_ = ::fork();
    if (process_ < 0) throw std::runtime_error("no process");
    if (process_ == 0) become(profile_.path(), commands[0], answers[1]);
    ::close(commands[0]);
    ::close(answers[1]);
    commands_ = commands[1];
    answers_ = answers[0];
    const Json target = call("Target.createTarget", {{"url", "about:blank"}}, false);
    const Json attached = call("Target.attachToTarget", {{"targetId", target["targetId"]}, {"flatten", true}}, false);
    session_ = attached["sessionId"];
    for (const auto* domain : {"Page", "Runtime", "Network", "Log"})
        call(std::string(domain) + ".enable", Json::object());
}

Browser::~Browser() {
    ::close(commands_);  // whereupon it ends
    ::close(answers_);
    for (int tick = 0; tick < 300 && ::waitpid(process_, nullptr, WNOHANG) == 0; ++tick) {
        if (tick == 250) ::kill(-process_, SIGKILL);
        std::this_thread::sleep_for(20ms);
    }
}

void Browser::emulate(int width, int height, bool isDark) {
    width_ = width;
    call("Emulation.setDeviceMetricsOverride",
         {{"width", width}, {"height", height}, {"deviceScaleFactor", 1}, {"mobile", width < 600}});
    call("Emulation.setEmulatedMedia",
         {{"features", {{{"name", "prefers-color-scheme"}, {"value", isDark ? "dark" : "light"}}}}});
}

void Browser::open(const std::string& address) {
    call("Page.navigate", {{"url", "about:blank"}});
    const Json answer = call("Page.navigate", {{"url", address}});
    if (answer.contains("errorText")) throw std::runtime_error(answer["errorText"].get<std::string>());
}

Json Browser::evaluate(const std::string& expression) {
    const Json answer =
        call("Runtime.evaluate", {{"expression", expression}, {"awaitPromise", true}, {"returnByValue", true}});
    if (answer.contains("exceptionDetails")) throw std::runtime_error(answer["exceptionDetails"].dump());
    return answer["result"].value("value", Json());
}

void Browser::await(const std::string& expression) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    const std::string attempt = "(() => { try { return Boolean(" + expression + "); } catch { return false; } })()";
    while (evaluate(attempt) != true) {
        if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("waited in vain for " + expression);
        std::this_thread::sleep_for(20ms);
    }
}

void Browser::press(const std::string& key) {
    static const std::map<std::string, int> codes{{"ArrowLeft", 37}, {"ArrowUp", 38}, {"ArrowRight", 39},
                                                  {"ArrowDown", 40}, {"Enter", 13},   {"Tab", 9},
                                                  {"Escape", 27}};
    for (const auto* type : {"keyDown", "keyUp"}) {
        Json event{{"type", type}, {"key", key}, {"code", key}, {"windowsVirtualKeyCode", codes.at(key)}};
        if (key == "Enter") event["text"] = "\r";
        call("Input.dispatchKeyEvent", event);
    }
}

void Browser::type(const std::string& text) {
    call("Input.insertText", {{"text", text}});
}

Json Browser::centreOf(const std::string& selector) {
    return evaluate(
        "(() => { const found = document.querySelector(" + Json(selector).dump() +
        "); found.scrollIntoView({block: 'center', behavior: 'instant'}); const box = found.getBoundingClientRect();"
        "return {x: box.x, y: box.y + box.height / 2, width: box.width}; })()");
}

void Browser::mouse(const std::string& type, double x, double y, int clicks) {
    call("Input.dispatchMouseEvent",
         {{"type", type}, {"x", x}, {"y", y}, {"button", "left"}, {"buttons", 1}, {"clickCount", clicks}});
}

void Browser::click(const std::string& selector) {
    drag(selector, 0.5, 0.5);
}

void Browser::doubleClick(const std::string& selector) {
    click(selector);
    const Json box = centreOf(selector);
    const double x = box["x"].get<double>() + box["width"].get<double>() / 2;
    mouse("mousePressed", x, box["y"], 2);
    mouse("mouseReleased", x, box["y"], 2);
}

void Browser::drag(const std::string& selector, double from, double until) {
    const Json box = centreOf(selector);
    const auto at = [&box](double part) { return box["x"].get<double>() + part * box["width"].get<double>(); };
    call("Input.dispatchMouseEvent", {{"type", "mouseMoved"}, {"x", at(from)}, {"y", box["y"]}});
    mouse("mousePressed", at(from), box["y"]);
    if (from != until) {
        mouse("mouseMoved", at((from + until) / 2), box["y"]);
        mouse("mouseMoved", at(until), box["y"]);
    }
    mouse("mouseReleased", at(until), box["y"]);
}

void Browser::takePicture(const std::filesystem::path& file, bool isWhole) {
    Json options{{"format", "png"}, {"captureBeyondViewport", isWhole}};
    if (isWhole) {
        const Json height = evaluate("scrollTo(0, 0), document.documentElement.scrollHeight");
        options["clip"] = {{"x", 0}, {"y", 0}, {"width", width_}, {"height", height}, {"scale", 1}};
    }
    writeFile(file, decoded(call("Page.captureScreenshot", options)["data"]));
}

Json Browser::call(const std::string& method, const Json& parameters, bool isOfPage) {
    Json request{{"id", ++lastCall_}, {"method", method}, {"params", parameters}};
    if (isOfPage) request["sessionId"] = session_;
    const std::string text = request.dump();
    // The zero at the end belongs to it.
    if (::write(commands_, text.c_str(), text.size() + 1) != static_cast<ssize_t>(text.size() + 1))
        throw std::runtime_error("the browser takes no more commands");
    while (true) {
        const Json answer = receive();
        if (!answer.contains("id")) {
            take(answer);
        } else if (answer["id"] == lastCall_) {
            if (answer.contains("error")) throw std::runtime_error(method + ": " + answer["error"].dump());
            return answer["result"];
        }
    }
}

void Browser::take(const Json& event) {
    const std::string method = event.value("method", "");
    if (method == "Network.requestWillBeSent") addresses.push_back(event["params"]["request"]["url"]);
    if (method == "Log.entryAdded") complaints.push_back(event["params"]["entry"]["text"]);
    if (method == "Runtime.consoleAPICalled" || method == "Runtime.exceptionThrown")
        complaints.push_back(event["params"].dump());
}

Json Browser::receive() {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (true) {
        if (const std::size_t end = received_.find('\0'); end != std::string::npos) {
            const Json message = Json::parse(received_.substr(0, end));
            received_.erase(0, end + 1);
            return message;
        }
        pollfd readable{.fd = answers_, .events = POLLIN, .revents = 0};
        if (::poll(&readable, 1, 1'000) == 0) {
            if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("the browser does not answer");
            continue;
        }
        std::array<char, 65'536> buffer{};
        const ssize_t count = ::read(answers_, buffer.data(), buffer.size());
        if (count <= 0) throw std::runtime_error("the browser has ended");
        received_.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

}  // namespace tarvex::collector::test
