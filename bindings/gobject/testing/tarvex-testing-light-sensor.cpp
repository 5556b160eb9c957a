#include <memory>

#include "private.h"
#include "tarvex-testing-glib.h"
#include "tarvex/testing/scripted_light_sensor.h"

using tarvex::platform::HidEventSystem;
using tarvex::platform::HidEventSystemClient;
using tarvex::platform::Platform;
using tarvex::testing::ScriptedHidEventSystem;

struct _TarvexTestingLightSensor {
    GObject parent_instance;
    std::shared_ptr<ScriptedHidEventSystem>* system;
};

G_DEFINE_FINAL_TYPE(TarvexTestingLightSensor, tarvex_testing_light_sensor, G_TYPE_OBJECT)

namespace {

/// The platform's own handle to sensors that a test reports for.
class SharedHidEventSystem final : public HidEventSystem {
public:
    explicit SharedHidEventSystem(std::shared_ptr<ScriptedHidEventSystem> system) : system_(std::move(system)) {}
    [[nodiscard]] std::unique_ptr<HidEventSystemClient> createClient() override { return system_->createClient(); }

private:
    std::shared_ptr<ScriptedHidEventSystem> system_;
};

}  // namespace

static void tarvex_testing_light_sensor_init(TarvexTestingLightSensor* self) {
    self->system = new std::shared_ptr<ScriptedHidEventSystem>(std::make_shared<ScriptedHidEventSystem>());
}

static void tarvex_testing_light_sensor_finalize(GObject* object) {
    delete TARVEX_TESTING_LIGHT_SENSOR(object)->system;
    G_OBJECT_CLASS(tarvex_testing_light_sensor_parent_class)->finalize(object);
}

static void tarvex_testing_light_sensor_class_init(TarvexTestingLightSensorClass* type) {
    G_OBJECT_CLASS(type)->finalize = tarvex_testing_light_sensor_finalize;
}

TarvexTestingLightSensor* tarvex_testing_light_sensor_new(TarvexClient* client) {
    auto* self = TARVEX_TESTING_LIGHT_SENSOR(g_object_new(TARVEX_TESTING_TYPE_LIGHT_SENSOR, nullptr));
    g_return_val_if_fail(TARVEX_IS_CLIENT(client), self);
    const auto install = [system = *self->system](Platform& platform) {
        platform.setHidEventSystem(std::make_unique<SharedHidEventSystem>(system));
    };
    if (tarvex_private_customize(install) == FALSE)
        g_critical("a light sensor takes the machine's place before the client's first use");
    return self;
}

void tarvex_testing_light_sensor_report(TarvexTestingLightSensor* self, gint lux, gdouble channel0, gdouble channel1,
                                        gdouble channel2, gdouble channel3) {
    g_return_if_fail(TARVEX_TESTING_IS_LIGHT_SENSOR(self));
    (*self->system)->emit(lux, channel0, channel1, channel2, channel3);
}
