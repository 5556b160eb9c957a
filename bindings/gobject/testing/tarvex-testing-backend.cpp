#include <array>
#include <string>

#include "answering_url_session.h"
#include "private.h"
#include "property_flags.h"
#include "tarvex-testing-glib.h"
#include "tarvex/testing/loopback_url_session.h"

using tarvex::glib::AnsweringBackend;
using tarvex::platform::Platform;

struct _TarvexTestingBackend {
    GObject parent_instance;
    AnsweringBackend* backend;
};

G_DEFINE_FINAL_TYPE(TarvexTestingBackend, tarvex_testing_backend, G_TYPE_OBJECT)

namespace {

enum Property : guint { noProperty, statusProperty, holdingProperty, end };

}  // namespace

static void tarvex_testing_backend_init(TarvexTestingBackend* self) {
    self->backend = new AnsweringBackend;
}

static void tarvex_testing_backend_finalize(GObject* object) {
    delete TARVEX_TESTING_BACKEND(object)->backend;
    G_OBJECT_CLASS(tarvex_testing_backend_parent_class)->finalize(object);
}

static void tarvex_testing_backend_get_property(GObject* object, guint id, GValue* value, GParamSpec* /*property*/) {
    const AnsweringBackend& backend = *TARVEX_TESTING_BACKEND(object)->backend;
    if (id == statusProperty) g_value_set_int(value, backend.status());
    if (id == holdingProperty) g_value_set_boolean(value, static_cast<gboolean>(backend.isHolding()));
}

static void tarvex_testing_backend_set_property(GObject* object, guint id, const GValue* value,
                                                GParamSpec* /*property*/) {
    const AnsweringBackend& backend = *TARVEX_TESTING_BACKEND(object)->backend;
    if (id == statusProperty) backend.setStatus(g_value_get_int(value));
    if (id == holdingProperty) backend.setHolding(g_value_get_boolean(value) != FALSE);
}

static void tarvex_testing_backend_class_init(TarvexTestingBackendClass* type) {
    GObjectClass* objects = G_OBJECT_CLASS(type);
    objects->get_property = tarvex_testing_backend_get_property;
    objects->set_property = tarvex_testing_backend_set_property;
    objects->finalize = tarvex_testing_backend_finalize;

    constexpr auto flags = tarvex::glib::readWrite;
    std::array<GParamSpec*, end> properties{};
    properties[statusProperty] = g_param_spec_int("status", nullptr, nullptr, 100, 599, 200, flags);
    properties[holdingProperty] = g_param_spec_boolean("holding", nullptr, nullptr, FALSE, flags);
    g_object_class_install_properties(objects, properties.size(), properties.data());
}

TarvexTestingBackend* tarvex_testing_backend_new(TarvexClient* client) {
    auto* self = TARVEX_TESTING_BACKEND(g_object_new(TARVEX_TESTING_TYPE_BACKEND, nullptr));
    g_return_val_if_fail(TARVEX_IS_CLIENT(client), self);
    const auto install = [backend = *self->backend](Platform& platform) {
        platform.setUrlSession(backend.makeSession());
    };
    if (tarvex_private_customize(install) == FALSE)
        g_critical("a backend takes the network's place before the client's first use");
    return self;
}

char** tarvex_testing_backend_get_documents(TarvexTestingBackend* self) {
    g_return_val_if_fail(TARVEX_TESTING_IS_BACKEND(self), g_new0(char*, 1));
    GStrvBuilder* builder = g_strv_builder_new();
    for (const std::string& document : self->backend->documents())
        g_strv_builder_add(builder, document.c_str());
    char** documents = g_strv_builder_end(builder);
    g_strv_builder_unref(builder);
    return documents;
}

void tarvex_testing_use_loopback(TarvexClient* client, guint16 port, const char* certificate_pem) {
    g_return_if_fail(TARVEX_IS_CLIENT(client));
    g_return_if_fail(certificate_pem != nullptr);
    const auto install = [port, pem = std::string(certificate_pem)](Platform& platform) {
        platform.setUrlSession(tarvex::testing::makeLoopbackUrlSession(port, pem));
    };
    if (tarvex_private_customize(install) == FALSE)
        g_critical("a loopback server takes the network's place before the client's first use");
}
