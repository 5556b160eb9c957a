#include "tarvex-gtk-consent-screen.h"

#include <array>

#include "private.h"
#include "property_flags.h"
#include "tarvex/gtk.h"

struct _TarvexGtkConsentScreen {
    GtkWidget parent_instance;
    TarvexConsentRequest* request;
    GtkWidget* content;
};

G_DEFINE_FINAL_TYPE(TarvexGtkConsentScreen, tarvex_gtk_consent_screen, GTK_TYPE_WIDGET)

namespace {

enum Property : guint { noProperty, requestProperty, end };

std::array<GParamSpec*, end> properties{};

/// Null where the client cannot be used; a critical message says why.
GtkWidget* contentFor(TarvexConsentRequest* request) {
    GtkWidget* content = nullptr;
    GError* error = nullptr;
    const auto show = [&content](const tarvex::InformationView& view) { content = tarvex::gtk::widget(view); };
    if (tarvex_private_show_request(request, show, &error) != FALSE) return content;
    g_critical("the consent screen shows nothing: %s", error->message);
    g_error_free(error);
    return nullptr;
}

}  // namespace

static void tarvex_gtk_consent_screen_init(TarvexGtkConsentScreen* /*self*/) {}

static void tarvex_gtk_consent_screen_dispose(GObject* object) {
    TarvexGtkConsentScreen* self = TARVEX_GTK_CONSENT_SCREEN(object);
    g_clear_pointer(&self->content, gtk_widget_unparent);
    g_clear_object(&self->request);
    G_OBJECT_CLASS(tarvex_gtk_consent_screen_parent_class)->dispose(object);
}

static void tarvex_gtk_consent_screen_get_property(GObject* object, guint /*id*/, GValue* value,
                                                   GParamSpec* /*property*/) {
    g_value_set_object(value, TARVEX_GTK_CONSENT_SCREEN(object)->request);
}

static void tarvex_gtk_consent_screen_set_property(GObject* object, guint /*id*/, const GValue* value,
                                                   GParamSpec* /*property*/) {
    auto* request = static_cast<TarvexConsentRequest*>(g_value_get_object(value));
    tarvex_gtk_consent_screen_set_request(TARVEX_GTK_CONSENT_SCREEN(object), request);
}

static void tarvex_gtk_consent_screen_class_init(TarvexGtkConsentScreenClass* type) {
    GObjectClass* objects = G_OBJECT_CLASS(type);
    objects->dispose = tarvex_gtk_consent_screen_dispose;
    objects->get_property = tarvex_gtk_consent_screen_get_property;
    objects->set_property = tarvex_gtk_consent_screen_set_property;

    constexpr auto flags = tarvex::glib::readWriteNotifying;
    properties[requestProperty] = g_param_spec_object("request", nullptr, nullptr, TARVEX_TYPE_CONSENT_REQUEST, flags);
    g_object_class_install_properties(objects, properties.size(), properties.data());
    gtk_widget_class_set_layout_manager_type(GTK_WIDGET_CLASS(type), GTK_TYPE_BIN_LAYOUT);
}

GtkWidget* tarvex_gtk_consent_screen_new(TarvexConsentRequest* request) {
    return GTK_WIDGET(g_object_new(TARVEX_GTK_TYPE_CONSENT_SCREEN, "request", request, nullptr));
}

TarvexConsentRequest* tarvex_gtk_consent_screen_get_request(TarvexGtkConsentScreen* self) {
    g_return_val_if_fail(TARVEX_GTK_IS_CONSENT_SCREEN(self), nullptr);
    return self->request;
}

void tarvex_gtk_consent_screen_set_request(TarvexGtkConsentScreen* self, TarvexConsentRequest* request) {
    g_return_if_fail(TARVEX_GTK_IS_CONSENT_SCREEN(self));
    g_return_if_fail(request == nullptr || TARVEX_IS_CONSENT_REQUEST(request));
    if (g_set_object(&self->request, request) == FALSE) return;
    g_clear_pointer(&self->content, gtk_widget_unparent);
    if (request != nullptr) self->content = contentFor(request);
    if (self->content != nullptr) gtk_widget_set_parent(self->content, GTK_WIDGET(self));
    g_object_notify_by_pspec(G_OBJECT(self), properties[requestProperty]);
}
