#include "tarvex-client.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "camera_watch.h"
#include "library.h"
#include "main_loop.h"
#include "private.h"
#include "property_flags.h"
#include "reader.h"
#include "tarvex-error.h"

struct _TarvexClient {
    GObject parent_instance;
};

G_DEFINE_FINAL_TYPE(TarvexClient, tarvex_client, G_TYPE_OBJECT)

namespace {

using tarvex::Client;
using tarvex::glib::isReader;
using tarvex::glib::Library;
using tarvex::glib::makeReader;

enum Property : guint { noProperty, countProperty, distanceAvailableProperty, firstSetting };

constexpr std::array settings{"application-id", "application-name", "camera-usage-description",
                              "data-directory", "bundle-directory", "sensor-root"};

std::array<GParamSpec*, firstSetting + settings.size()> properties{};

constexpr bool haveOneNumber(TarvexError ours, tarvex::TarvexError::Code theirs) {
    return static_cast<int>(ours) == static_cast<int>(theirs);
}

GError* makeError(const tarvex::TarvexError& error) {
    using Code = tarvex::TarvexError::Code;
    static_assert(haveOneNumber(TARVEX_ERROR_USAGE_DESCRIPTION, Code::usageDescription));
    static_assert(haveOneNumber(TARVEX_ERROR_HTTP_ERROR, Code::httpError));
    static_assert(haveOneNumber(TARVEX_ERROR_NO_CONSENT_TO_TRACK, Code::noConsentToTrack));
    static_assert(
        haveOneNumber(TARVEX_ERROR_NO_VIEW_TO_ATTACH_FOR_DISTANCE_TRACKING, Code::noViewToAttachForDistanceTracking));
    static_assert(haveOneNumber(TARVEX_ERROR_DISTANCE_TRACKING_IS_NOT_AVAILABLE, Code::distanceTrackingIsNotAvailable));
    static_assert(haveOneNumber(TARVEX_ERROR_LIGHT_TRACKING_IS_NOT_AVAILABLE, Code::lightTrackingIsNotAvailable));
    static_assert(haveOneNumber(TARVEX_ERROR_NO_REFRESH_RATE, Code::noRefreshRate));
    static_assert(haveOneNumber(TARVEX_ERROR_CANNOT_LOAD_TRACKING_DATA, Code::cannotLoadTrackingData));
    return g_error_new_literal(TARVEX_ERROR, static_cast<int>(error.code()),
                               error.errorDescription().value_or("").c_str());
}

/// Of several that wait for the main loop, one is enough.
void notifyLater(Property property) {
    static std::array<std::atomic_flag, firstSetting> waiting;
    if (waiting.at(property).test_and_set()) return;
    tarvex::glib::performIn(nullptr, [property] {
        waiting.at(property).clear();
        g_object_notify_by_pspec(G_OBJECT(tarvex_client_get_default()), properties.at(property));
    });
}

bool distanceIsAvailable() {
    const auto& tracking = tarvex::platform::Platform::current().faceTracking();
    return tracking.isSupported() && tracking.supportedNumberOfTrackedFaces() >= 1;
}

enum class Availability : std::uint8_t { neverAsked, no, yes };
std::atomic<Availability> lastAvailability = Availability::neverAsked;

}  // namespace

void tarvex_private_watch_cameras(const char* devices) {
    tarvex::glib::watchCameras(devices, tarvex::glib::lookAtDistanceAgain);
}

void tarvex::glib::lookAtDistanceAgain() {
    // A host that measures light alone gets no warning about cameras.
    if (lastAvailability == Availability::neverAsked) return;
    const auto availability = distanceIsAvailable() ? Availability::yes : Availability::no;
    if (lastAvailability.exchange(availability) != availability) notifyLater(distanceAvailableProperty);
}

static void tarvex_client_init(TarvexClient* /*self*/) {}

// The process has one: to construct another one returns it.
static GObject* tarvex_client_constructor(GType type, guint number, GObjectConstructParam* given) {
    static GObject* const only = [&] {
        tarvex::glib::claimMainThread();
        Library::shared().onCountChanged([] { notifyLater(countProperty); });
        return G_OBJECT_CLASS(tarvex_client_parent_class)->constructor(type, number, given);
    }();
    return G_OBJECT(g_object_ref(only));
}

static void tarvex_client_get_property(GObject* object, guint id, GValue* value, GParamSpec* property) {
    TarvexClient* self = TARVEX_CLIENT(object);
    if (id == countProperty) return g_value_set_int64(value, tarvex_client_get_count(self));
    if (id == distanceAvailableProperty) return g_value_set_boolean(value, tarvex_client_get_distance_available(self));
    const auto setting = Library::shared().setting(g_param_spec_get_name(property));
    g_value_set_string(value, setting ? setting->c_str() : nullptr);
}

static void tarvex_client_set_property(GObject* object, guint /*id*/, const GValue* value, GParamSpec* property) {
    const char* text = g_value_get_string(value);
    const char* name = g_param_spec_get_name(property);
    g_return_if_fail(text == nullptr || g_utf8_validate(text, -1, nullptr));
    if (!Library::shared().set(name, text != nullptr ? std::optional<std::string>(text) : std::nullopt))
        return g_critical("%s of the client is set before its first use: it stays as it was", name);
    g_object_notify_by_pspec(object, property);
}

static void tarvex_client_class_init(TarvexClientClass* type) {
    GObjectClass* objects = G_OBJECT_CLASS(type);
    objects->constructor = tarvex_client_constructor;
    objects->get_property = tarvex_client_get_property;
    objects->set_property = tarvex_client_set_property;

    properties[countProperty] = g_param_spec_int64("count", nullptr, nullptr, 0, G_MAXINT64, 0, tarvex::glib::readOnly);
    properties[distanceAvailableProperty] =
        g_param_spec_boolean("distance-available", nullptr, nullptr, FALSE, tarvex::glib::readOnly);
    for (std::size_t i = 0; i < settings.size(); ++i)
        properties.at(firstSetting + i) =
            g_param_spec_string(settings.at(i), nullptr, nullptr, nullptr, tarvex::glib::readWriteNotifying);
    g_object_class_install_properties(objects, properties.size(), properties.data());
}

TarvexClient* tarvex_client_get_default() {
    static TarvexClient* const client = TARVEX_CLIENT(g_object_new(TARVEX_TYPE_CLIENT, nullptr));
    return client;
}

gboolean tarvex_private_customize(const std::function<void(tarvex::platform::Platform&)>& change) {
    return static_cast<gboolean>(Library::shared().customize(change));
}

gboolean tarvex_client_start(TarvexClient* self, TarvexReader reader, gint64 interval, TarvexView* view,
                             GError** error) {
    g_return_val_if_fail(TARVEX_IS_CLIENT(self), FALSE);
    g_return_val_if_fail(isReader(reader), FALSE);
    g_return_val_if_fail(view == nullptr || TARVEX_IS_VIEW(view), FALSE);
    g_return_val_if_fail(error == nullptr || *error == nullptr, FALSE);
    Client* client = Library::shared().use(error);
    if (client == nullptr) return FALSE;
    GError* failure = nullptr;
    client->startTracking({makeReader(reader, interval)}, view != nullptr ? tarvex::glib::viewIn(view) : nullptr,
                          [&failure](const Client::Result& result, const auto& /*reader*/) {
                              if (!result) failure = makeError(result.error());
                          });
    if (reader == TARVEX_READER_DISTANCE) tarvex::glib::lookAtDistanceAgain();
    if (failure == nullptr) return TRUE;
    g_propagate_error(error, failure);
    return FALSE;
}

void tarvex_client_stop(TarvexClient* self, TarvexReader reader) {
    g_return_if_fail(TARVEX_IS_CLIENT(self));
    g_return_if_fail(isReader(reader));
    if (Client* client = Library::shared().inUse()) client->stopTracking(makeReader(reader));
}

void tarvex_client_stop_all(TarvexClient* self) {
    g_return_if_fail(TARVEX_IS_CLIENT(self));
    if (Client* client = Library::shared().inUse()) client->stopTracking();
}

gboolean tarvex_client_in_progress(TarvexClient* self, TarvexReader reader) {
    g_return_val_if_fail(TARVEX_IS_CLIENT(self), FALSE);
    g_return_val_if_fail(isReader(reader), FALSE);
    const Client* client = Library::shared().inUse();
    if (client == nullptr) return FALSE;
    const auto all = client->trackingInProgress();
    const auto found = all.find(makeReader(reader));
    return static_cast<gboolean>(found != all.end() && found->second);
}

gboolean tarvex_client_has_consented(TarvexClient* self, TarvexReader reader) {
    g_return_val_if_fail(TARVEX_IS_CLIENT(self), FALSE);
    g_return_val_if_fail(isReader(reader), FALSE);
    const Client* client = Library::shared().useOrComplain(G_STRFUNC);
    return static_cast<gboolean>(client != nullptr && client->hasConsentedToTracking(makeReader(reader)));
}

void tarvex_client_share_async(TarvexClient* self, gboolean delete_if_successful, GAsyncReadyCallback callback,
                               gpointer user_data) {
    g_return_if_fail(TARVEX_IS_CLIENT(self));
    GTask* task = g_task_new(self, nullptr, callback, user_data);
    g_task_set_source_tag(task, reinterpret_cast<gpointer>(tarvex_client_share_async));
    GError* error = nullptr;
    Client* client = Library::shared().useOnMainThread(&error);
    if (client == nullptr) {
        g_task_return_error(task, error);
        return g_object_unref(task);
    }
    // The task is touched in its own context alone, so that nothing of an interpreter is on the delivery thread.
    client->shareTrackingData(delete_if_successful != FALSE, [task](const Client::Result& result) {
        tarvex::glib::performIn(g_task_get_context(task), [task, result] {
            if (result)
                g_task_return_boolean(task, TRUE);
            else
                g_task_return_error(task, makeError(result.error()));
            g_object_unref(task);
        });
    });
}

gboolean tarvex_client_share_finish(TarvexClient* self, GAsyncResult* result, GError** error) {
    g_return_val_if_fail(TARVEX_IS_CLIENT(self), FALSE);
    g_return_val_if_fail(g_task_is_valid(result, self), FALSE);
    g_return_val_if_fail(g_async_result_is_tagged(result, reinterpret_cast<gpointer>(tarvex_client_share_async)),
                         FALSE);
    return g_task_propagate_boolean(G_TASK(result), error);
}

void tarvex_client_delete_all(TarvexClient* self) {
    g_return_if_fail(TARVEX_IS_CLIENT(self));
    if (Client* client = Library::shared().useOrComplain(G_STRFUNC)) client->deleteTrackingData();
}

gint64 tarvex_client_get_count(TarvexClient* self) {
    g_return_val_if_fail(TARVEX_IS_CLIENT(self), 0);
    const Client* client = Library::shared().useOrComplain(G_STRFUNC);
    return client != nullptr ? client->trackingDataCount() : 0;
}

gboolean tarvex_client_get_distance_available(TarvexClient* self) {
    g_return_val_if_fail(TARVEX_IS_CLIENT(self), FALSE);
    if (Library::shared().useOrComplain(G_STRFUNC) == nullptr) return FALSE;
    const bool isAvailable = distanceIsAvailable();
    if (lastAvailability.exchange(isAvailable ? Availability::yes : Availability::no) == Availability::neverAsked)
        tarvex_private_watch_cameras("/dev");
    return static_cast<gboolean>(isAvailable);
}
