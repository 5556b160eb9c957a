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

[[gnu::constructor]] void prepare() {
    const char* sensors = std::getenv("TARVEX_TEST_SENSORS");
    const char* backend = std::getenv("TARVEX_TEST_BACKEND");
    if (sensors == nullptr || backend == nullptr) return;
    unsetenv("LD_PRELOAD");  // programs that the host starts are no hosts
    TarvexClient* client = tarvex_client_get_default();
    g_object_set(client, "sensor-root", sensors, nullptr);
    const std::string directory = backend;
    tarvex_testing_use_loopback(client, static_cast<guint16>(std::stoi(contentsOf(directory + "/port"))),
                                contentsOf(directory + "/certificate.pem").c_str());
}

}  // namespace
