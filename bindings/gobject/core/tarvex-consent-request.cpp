#include "tarvex-consent-request.h"

#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "library.h"
#include "main_loop.h"
#include "private.h"
#include "property_flags.h"
#include "reader.h"
#include "tarvex-client.h"

struct _TarvexConsentRequest {
    GObject parent_instance;
    char* applicationName;
    char* description;
    std::vector<TarvexReader>* readers;
    char* link;
};

G_DEFINE_FINAL_TYPE(TarvexConsentRequest, tarvex_consent_request, G_TYPE_OBJECT)

namespace {

using tarvex::Client;
using tarvex::DataReader;
using tarvex::InformationView;
using tarvex::Url;
using tarvex::glib::isReader;
using tarvex::glib::Library;
using tarvex::glib::makeReader;

enum Property : guint { noProperty, applicationNameProperty, descriptionProperty, linkProperty, end };

guint decided = 0;

std::optional<std::string> textOf(const char* text) {
    return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
}

char* checkedLink(const GValue* value) {
    const char* text = g_value_get_string(value);
    if (text == nullptr || Url::parse(text)) return g_strdup(text);
    g_critical("the link of a consent request is no absolute URL: %s", text);
    return nullptr;
}

std::vector<DataReader> readersOf(const TarvexConsentRequest* self) {
    std::vector<DataReader> all;
    for (const TarvexReader reader : *self->readers)
        all.push_back(makeReader(reader));
    return all;
}

/// A new screen each time: its closure holds the request, which holds no screen.
InformationView viewOf(TarvexConsentRequest* self, const Client& client) {
    const auto link = self->link != nullptr ? Url::parse(self->link) : std::nullopt;
    return client.informationView(textOf(self->applicationName), textOf(self->description), readersOf(self), link,
                                  [request = tarvex::glib::reference(self)](bool consented) {
                                      tarvex::glib::lookAtDistanceAgain();
                                      tarvex::glib::performIn(nullptr, [request, consented] {
                                          g_signal_emit(request.get(), decided, 0, static_cast<gboolean>(consented));
                                      });
                                  });
}

using Action = std::function<void()>;

/// The action of the button of this name; empty when there is none.
Action buttonIn(const tarvex::ui::Element& element, std::string_view name) {
    const auto* button = std::get_if<tarvex::ui::Button>(&element.content);
    if (button != nullptr && button->name == name) return button->action;
    const auto inAny = [name](const auto& children) -> Action {
        for (const auto& child : children)
            if (Action action = buttonIn(child, name)) return action;
        return nullptr;
    };
    if (const auto* row = std::get_if<tarvex::ui::HStack>(&element.content)) return inAny(row->children);
    if (const auto* column = std::get_if<tarvex::ui::VStack>(&element.content)) return inAny(column->children);
    return nullptr;
}

gboolean press(TarvexConsentRequest* self, std::string_view name, GError** error) {
    return tarvex_private_show_request(
        self,
        [name](const InformationView& view) {
            if (const Action action = buttonIn(view.body(), name)) action();
        },
        error);
}

}  // namespace

gboolean tarvex_private_show_request(TarvexConsentRequest* request,
                                     const std::function<void(const InformationView&)>& show, GError** error) {
    const Client* client = Library::shared().useOnMainThread(error);
    if (client == nullptr) return FALSE;
    show(viewOf(request, *client));
    return TRUE;
}

static void tarvex_consent_request_init(TarvexConsentRequest* self) {
    self->readers = new std::vector<TarvexReader>;
    tarvex_client_get_default();  // the main thread is decided about by now
}

static void tarvex_consent_request_get_property(GObject* object, guint id, GValue* value, GParamSpec* /*property*/) {
    const TarvexConsentRequest* self = TARVEX_CONSENT_REQUEST(object);
    if (id == applicationNameProperty) g_value_set_string(value, self->applicationName);
    if (id == descriptionProperty) g_value_set_string(value, self->description);
    if (id == linkProperty) g_value_set_string(value, self->link);
}

static void tarvex_consent_request_set_property(GObject* object, guint id, const GValue* value,
                                                GParamSpec* /*property*/) {
    TarvexConsentRequest* self = TARVEX_CONSENT_REQUEST(object);
    if (id == applicationNameProperty) self->applicationName = g_value_dup_string(value);
    if (id == descriptionProperty) self->description = g_value_dup_string(value);
    if (id == linkProperty) self->link = checkedLink(value);
}

static void tarvex_consent_request_finalize(GObject* object) {
    TarvexConsentRequest* self = TARVEX_CONSENT_REQUEST(object);
    g_free(self->applicationName);
    g_free(self->description);
    delete self->readers;
    g_free(self->link);
    G_OBJECT_CLASS(tarvex_consent_request_parent_class)->finalize(object);
}

static void tarvex_consent_request_class_init(TarvexConsentRequestClass* type) {
    GObjectClass* objects = G_OBJECT_CLASS(type);
    objects->get_property = tarvex_consent_request_get_property;
    objects->set_property = tarvex_consent_request_set_property;
    objects->finalize = tarvex_consent_request_finalize;

    constexpr auto flags = tarvex::glib::givenOnce;
    std::array<GParamSpec*, end> properties{};
    properties[applicationNameProperty] = g_param_spec_string("application-name", nullptr, nullptr, nullptr, flags);
    properties[descriptionProperty] = g_param_spec_string("description", nullptr, nullptr, nullptr, flags);
    properties[linkProperty] = g_param_spec_string("link", nullptr, nullptr, nullptr, flags);
    g_object_class_install_properties(objects, properties.size(), properties.data());
    decided = g_signal_new("decided", TARVEX_TYPE_CONSENT_REQUEST, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr,
                           G_TYPE_NONE, 1, G_TYPE_BOOLEAN);
}

TarvexConsentRequest* tarvex_consent_request_new(const char* application_name, const char* description,
                                                 const TarvexReader* readers, gsize n_readers, const char* link) {
    auto* request =
        TARVEX_CONSENT_REQUEST(g_object_new(TARVEX_TYPE_CONSENT_REQUEST, "application-name", application_name,
                                            "description", description, "link", link, nullptr));
    g_return_val_if_fail(readers != nullptr || n_readers == 0, request);
    for (gsize i = 0; i < n_readers; ++i) {
        int number = 0;
        std::memcpy(&number, readers + i, sizeof number);
        if (isReader(number))
            request->readers->push_back(static_cast<TarvexReader>(number));
        else
            g_critical("a consent request has no reader %d", number);
    }
    return request;
}

const TarvexReader* tarvex_consent_request_get_readers(TarvexConsentRequest* self, gsize* n_readers) {
    if (n_readers != nullptr) *n_readers = 0;
    g_return_val_if_fail(TARVEX_IS_CONSENT_REQUEST(self), nullptr);
    g_return_val_if_fail(n_readers != nullptr, nullptr);
    *n_readers = self->readers->size();
    return self->readers->data();
}

gboolean tarvex_consent_request_cancel(TarvexConsentRequest* self, GError** error) {
    g_return_val_if_fail(TARVEX_IS_CONSENT_REQUEST(self), FALSE);
    return press(self, "cancel", error);
}

gboolean tarvex_consent_request_learn_more(TarvexConsentRequest* self, GError** error) {
    g_return_val_if_fail(TARVEX_IS_CONSENT_REQUEST(self), FALSE);
    g_return_val_if_fail(self->link != nullptr, FALSE);
    return press(self, "learn-more", error);
}

gboolean tarvex_consent_request_consent(TarvexConsentRequest* self, GError** error) {
    g_return_val_if_fail(TARVEX_IS_CONSENT_REQUEST(self), FALSE);
    return press(self, "consent", error);
}
