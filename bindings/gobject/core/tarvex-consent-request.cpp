#include "tarvex-consent-request.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "library.h"
#include "main_loop.h"
#include "private.h"

struct _TarvexConsentRequest {
    GObject parent_instance;
    char* applicationName;
    char* description;
    GArray* readers;
    char* link;
};

G_DEFINE_FINAL_TYPE(TarvexConsentRequest, tarvex_consent_request, G_TYPE_OBJECT)

namespace {

using tarvex::Client;
using tarvex::DataReader;
using tarvex::InformationView;
using tarvex::Url;
using tarvex::glib::Library;

enum Property : guint { noProperty, applicationNameProperty, descriptionProperty, readersProperty, linkProperty, end };

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

GArray* checkedReaders(const GValue* value) {
    GArray* checked = g_array_new(FALSE, FALSE, sizeof(TarvexReader));
    const auto* given = static_cast<GArray*>(g_value_get_boxed(value));
    if (given == nullptr) return checked;
    if (g_array_get_element_size(const_cast<GArray*>(given)) != sizeof(TarvexReader)) {
        g_critical("the readers of a consent request are an array of TarvexReader");
        return checked;
    }
    for (guint i = 0; i < given->len; ++i) {
        const int reader = g_array_index(given, int, i);
        if (reader == TARVEX_READER_DISTANCE || reader == TARVEX_READER_AMBIENT_LIGHT)
            g_array_append_val(checked, reader);
        else
            g_critical("a consent request has no reader %d", reader);
    }
    return checked;
}

std::vector<DataReader> readersOf(const TarvexConsentRequest* self) {
    std::vector<DataReader> all;
    for (guint i = 0; i < self->readers->len; ++i)
        all.push_back(g_array_index(self->readers, TarvexReader, i) == TARVEX_READER_DISTANCE
                          ? DataReader::distance(std::nullopt)
                          : DataReader::ambientLight(std::nullopt));
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

static void tarvex_consent_request_init(TarvexConsentRequest* /*self*/) {}

static void tarvex_consent_request_get_property(GObject* object, guint id, GValue* value, GParamSpec* /*property*/) {
    const TarvexConsentRequest* self = TARVEX_CONSENT_REQUEST(object);
    if (id == readersProperty) return g_value_set_boxed(value, self->readers);
    if (id == applicationNameProperty) g_value_set_string(value, self->applicationName);
    if (id == descriptionProperty) g_value_set_string(value, self->description);
    if (id == linkProperty) g_value_set_string(value, self->link);
}

static void tarvex_consent_request_set_property(GObject* object, guint id, const GValue* value,
                                                GParamSpec* /*property*/) {
    TarvexConsentRequest* self = TARVEX_CONSENT_REQUEST(object);
    if (id == applicationNameProperty) self->applicationName = g_value_dup_string(value);
    if (id == descriptionProperty) self->description = g_value_dup_string(value);
    if (id == readersProperty) self->readers = checkedReaders(value);
    if (id == linkProperty) self->link = checkedLink(value);
}

static void tarvex_consent_request_finalize(GObject* object) {
    TarvexConsentRequest* self = TARVEX_CONSENT_REQUEST(object);
    g_free(self->applicationName);
    g_free(self->description);
    g_array_unref(self->readers);
    g_free(self->link);
    G_OBJECT_CLASS(tarvex_consent_request_parent_class)->finalize(object);
}

static void tarvex_consent_request_class_init(TarvexConsentRequestClass* type) {
    GObjectClass* objects = G_OBJECT_CLASS(type);
    objects->get_property = tarvex_consent_request_get_property;
    objects->set_property = tarvex_consent_request_set_property;
    objects->finalize = tarvex_consent_request_finalize;

    constexpr auto flags =
        static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_CONSTRUCT_ONLY | G_PARAM_STATIC_STRINGS);
    std::array<GParamSpec*, end> properties{};
    properties[applicationNameProperty] = g_param_spec_string("application-name", nullptr, nullptr, nullptr, flags);
    properties[descriptionProperty] = g_param_spec_string("description", nullptr, nullptr, nullptr, flags);
    properties[readersProperty] = g_param_spec_boxed("readers", nullptr, nullptr, G_TYPE_ARRAY, flags);
    properties[linkProperty] = g_param_spec_string("link", nullptr, nullptr, nullptr, flags);
    g_object_class_install_properties(objects, properties.size(), properties.data());
    decided = g_signal_new("decided", TARVEX_TYPE_CONSENT_REQUEST, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr,
                           G_TYPE_NONE, 1, G_TYPE_BOOLEAN);
}

TarvexConsentRequest* tarvex_consent_request_new(const char* application_name, const char* description,
                                                 const TarvexReader* readers, gsize n_readers, const char* link) {
    g_return_val_if_fail(readers != nullptr || n_readers == 0, nullptr);
    g_return_val_if_fail(n_readers <= G_MAXUINT, nullptr);
    GArray* all = g_array_new(FALSE, FALSE, sizeof(TarvexReader));
    if (n_readers > 0) g_array_append_vals(all, readers, static_cast<guint>(n_readers));
    auto* request =
        TARVEX_CONSENT_REQUEST(g_object_new(TARVEX_TYPE_CONSENT_REQUEST, "application-name", application_name,
                                            "description", description, "readers", all, "link", link, nullptr));
    g_array_unref(all);
    return request;
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
