// What a test sets for the host that it runs, before the host's main function.

#include <tarvex-testing-glib.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace {

std::string contentsOf(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

[[gnu::constructor]] void prepare() {
    const std::string sensors = variable("TARVEX_TEST_SENSORS");
    const std::string backend = variable("TARVEX_TEST_BACKEND");
    if (sensors.empty() || backend.empty()) return;
    unsetenv("LD_PRELOAD");  // programs that the host starts are no hosts
    TarvexClient* client = tarvex_client_get_default();
    g_object_set(client, "sensor-root", sensors.c_str(), nullptr);
    tarvex_testing_use_loopback(client, static_cast<guint16>(std::stoi(contentsOf(backend + "/port"))),
                                contentsOf(backend + "/certificate.pem").c_str());
}

}  // namespace
