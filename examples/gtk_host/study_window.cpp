#include "study_window.h"

#include <libintl.h>
#include <tarvex/gtk.h>

#include <chrono>
#include <utility>

#include "signal_chart.h"

namespace gtk_host {

using namespace tarvex;

namespace {

// Two seconds: with one or three, the end of a measurement falls onto the beginning of a later one.
const std::vector<DataReader> readers{DataReader::distance(2), DataReader::ambientLight(1)};

std::string description() {
    return gettext(
        "The study looks at how light and viewing distance change while you work. A camera looks for your eyes; no "
        "picture is kept.");
}

// The library's words in the language of the window.
std::string wordsOf(const TarvexError& error) {
    const std::string words = error.errorDescription().value_or("");
    return words.empty() ? words : gettext(words.c_str());
}

GtkWidget* column(int spacing) {
    GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, spacing);
    gtk_widget_set_margin_top(box, 12);
    gtk_widget_set_margin_bottom(box, 12);
    gtk_widget_set_margin_start(box, 12);
    gtk_widget_set_margin_end(box, 12);
    return box;
}

GtkWidget* text(const char* words) {
    GtkWidget* label = gtk_label_new(words);
    gtk_label_set_wrap(GTK_LABEL(label), TRUE);
    gtk_label_set_xalign(GTK_LABEL(label), 0);
    return label;
}

/// Takes back what the desktop's portal stored about the camera: for hosts without a name, and for this one where a
/// desktop's menu started it. An answer that is not there stays so.
void forgetCameraAnswer() {
    g_bus_get(
        G_BUS_TYPE_SESSION, nullptr,
        [](GObject*, GAsyncResult* result, gpointer) {
            GDBusConnection* bus = g_bus_get_finish(result, nullptr);
            if (bus == nullptr) return;  // nobody keeps an answer
            constexpr const char* store = "org.freedesktop.impl.portal.PermissionStore";
            for (const char* host : {"", "org.tarvex.GtkHost"}) {
                g_dbus_connection_call(bus, store, "/org/freedesktop/impl/portal/PermissionStore", store,
                                       "DeletePermission", g_variant_new("(sss)", "devices", "camera", host), nullptr,
                                       G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
            }
            g_object_unref(bus);
        },
        nullptr);
}

/// A dialog over the window, which waits for it; it has the button "Cancel" so far.
GtkWidget* makeQuestion(GtkWindow* window, const char* question, const char* explanation) {
    GtkWidget* dialog = gtk_message_dialog_new(window, GTK_DIALOG_DESTROY_WITH_PARENT, GTK_MESSAGE_QUESTION,
                                               GTK_BUTTONS_NONE, "%s", question);
    gtk_window_set_modal(GTK_WINDOW(dialog), TRUE);
    gtk_message_dialog_format_secondary_text(GTK_MESSAGE_DIALOG(dialog), "%s", explanation);
    gtk_dialog_add_button(GTK_DIALOG(dialog), gettext("_Cancel"), GTK_RESPONSE_CANCEL);
    return dialog;
}

}  // namespace

std::shared_ptr<StudyWindow> StudyWindow::open(GtkApplication* application, platform::Platform& platform,
                                               Substitutes substitutes) {
    std::shared_ptr<StudyWindow> window(new StudyWindow(application, platform, substitutes));
    const Client& client = Client::shared();
    if (client.hasConsentedToTracking(readers[0]) && client.hasConsentedToTracking(readers[1]))
        window->showStudy();
    else
        window->showConsentScreen();
    return window;
}

StudyWindow::StudyWindow(GtkApplication* application, platform::Platform& platform, Substitutes substitutes)
    : platform_(platform), substitutes_(substitutes), window_(GTK_WINDOW(gtk_application_window_new(application))) {
    gtk_window_set_title(window_, "Light Study");
    gtk_window_set_icon_name(window_, "org.tarvex.GtkHost");
    gtk_window_set_default_size(window_, 420, 760);
    g_object_add_weak_pointer(G_OBJECT(window_), reinterpret_cast<gpointer*>(&window_));
}

StudyWindow::~StudyWindow() {
    if (refreshing_) refreshing_->invalidate();
    Client::shared().stopTracking();
    if (window_ == nullptr) return;
    g_object_remove_weak_pointer(G_OBJECT(window_), reinterpret_cast<gpointer*>(&window_));
    gtk_window_destroy(window_);
}

void StudyWindow::showConsentScreen() {
    // The decision comes on any thread, and maybe after this window has gone.
    const auto decide = [self = weak_from_this(), &loop = platform_.mainRunLoop()](bool consented) {
        loop.perform([self, consented] {
            const auto window = self.lock();
            if (!window || window->window_ == nullptr) return;
            if (consented)
                window->showStudy();
            else
                window->showRefusal();
        });
    };
    const auto screen = Client::shared().informationViewController(
        std::nullopt, description(), readers, Url::parse("https://example.org/light-study"), decide);
    gtk_window_set_child(window_, gtk::widget(*screen));
}

void StudyWindow::showRefusal() {
    if (samples_) return;  // an earlier question was answered with yes
    GtkWidget* page = column(16);
    gtk_widget_set_valign(page, GTK_ALIGN_CENTER);
    gtk_box_append(GTK_BOX(page),
                   text(gettext("Nothing is measured: there is no consent, or no access to the camera.")));
    gtk_box_append(GTK_BOX(page), makeButton(gettext("Ask again"), &StudyWindow::showConsentScreen));
    gtk_box_append(GTK_BOX(page),
                   text(gettext("The desktop remembers a refused camera and does not ask again by itself. If it was "
                                "refused by accident:")));
    gtk_box_append(GTK_BOX(page), makeButton(gettext("Ask about the camera again"), &StudyWindow::askAfresh));
    gtk_window_set_child(window_, page);
}

void StudyWindow::askAfresh() {
    forgetCameraAnswer();
    showConsentScreen();
}

void StudyWindow::showStudy() {
    if (samples_) return;  // two questions, both answered with yes
    samples_.emplace(platform_);
    GtkWidget* page = column(8);
    count_ = GTK_LABEL(text(""));
    status_ = GTK_LABEL(text(""));
    GtkWidget* buttons = gtk_flow_box_new();
    gtk_flow_box_set_selection_mode(GTK_FLOW_BOX(buttons), GTK_SELECTION_NONE);
    gtk_flow_box_set_max_children_per_line(GTK_FLOW_BOX(buttons), 2);
    GtkWidget* share = makeButton(gettext("Share now"), &StudyWindow::share);
    GtkWidget* startOrStop = makeButton(gettext("Stop"), &StudyWindow::startOrStop);
    startOrStop_ = GTK_BUTTON(startOrStop);
    GtkWidget* deletion = makeButton(gettext("Delete everything"), &StudyWindow::askWhetherToDelete);
    gtk_widget_add_css_class(deletion, "destructive-action");
    GtkWidget* withdrawal = makeButton(gettext("Withdraw consent"), &StudyWindow::askWhetherToWithdraw);
    // The last two lie where a second press of "I consent" does no harm.
    for (GtkWidget* button : {share, deletion, startOrStop, withdrawal}) {
        gtk_flow_box_append(GTK_FLOW_BOX(buttons), button);
        gtk_widget_set_focusable(gtk_widget_get_parent(button), FALSE);
    }
    if (substitutes_.light)
        gtk_box_append(GTK_BOX(page), text(gettext("No light sensor: a modelled day of light is shown.")));
    if (substitutes_.camera)
        gtk_box_append(GTK_BOX(page), text(gettext("No camera: photographs of faces are measured.")));
    for (GtkWidget* part : {makeCharts(), GTK_WIDGET(count_), GTK_WIDGET(status_), buttons})
        gtk_box_append(GTK_BOX(page), part);

    // What the face tracker shows lies over the page.
    GtkWidget* host = gtk_overlay_new();
    gtk_overlay_set_child(GTK_OVERLAY(host), page);
    faceTrackingHost_ = gtk::wrap(host);
    gtk_window_set_child(window_, host);
    gtk_window_set_focus(window_, share);

    refreshing_ = platform_.timerScheduler().scheduledTimer(1, [self = weak_from_this()] {
        if (const auto window = self.lock()) window->refresh();
    });
    start();
}

GtkWidget* StudyWindow::makeCharts() {
    const auto signal = [this](const char* name) {
        return [this, name]() -> const Signal& { return samples_->signal(name); };
    };
    const auto now = [this] { return platform_.clock().secondsSince1970(); };
    GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 8);
    GtkWidget* light = makeChart({.title = gettext("Ambient light"),
                                  .unit = "lux",
                                  .logarithmic = true,
                                  .least = 1,
                                  .most = 100'000,
                                  .ticks = {1, 10, 100, 1000, 10'000, 100'000},
                                  .lines = {{"lux", {0.90F, 0.38F, 0.0F, 1}, signal("lux")}},
                                  .now = now});
    GtkWidget* distance =
        makeChart({.title = gettext("Eye distance"),
                   .unit = "cm",
                   .most = 150,
                   .ticks = {0, 50, 100, 150},
                   .lines = {{gettext("left"), {0.11F, 0.44F, 0.85F, 1}, signal("leftEyeDistanceFromCamera")},
                             {gettext("right"), {0.18F, 0.64F, 0.41F, 1}, signal("rightEyeDistanceFromCamera")}},
                   .now = now});
    charts_ = {light, distance};
    for (GtkWidget* chart : charts_)
        gtk_box_append(GTK_BOX(box), chart);
    return box;
}

GtkWidget* StudyWindow::makeButton(const char* words, void (StudyWindow::*action)()) {
    struct Press {
        StudyWindow* window;
        void (StudyWindow::*action)();
    };
    GtkWidget* button = gtk_button_new_with_label(words);
    g_signal_connect_data(
        button, "clicked", G_CALLBACK(+[](GtkButton*, gpointer data) {
            const Press press = *static_cast<Press*>(data);
            (press.window->*press.action)();
        }),
        new Press{.window = this, .action = action}, [](gpointer data, GClosure*) { delete static_cast<Press*>(data); },
        static_cast<GConnectFlags>(0));
    return button;
}

void StudyWindow::start() {
    std::string failures;
    Client::shared().startTracking(
        readers, faceTrackingHost_, [&failures](const Client::Result& result, const auto& reader) {
            if (result) return;
            failures +=
                (failures.empty() ? "" : "\n") + std::string(reader->description()) + ": " + wordsOf(result.error());
        });
    report(failures);
    gtk_button_set_label(startOrStop_, gettext("Stop"));
    refresh();
}

void StudyWindow::stop() {
    Client::shared().stopTracking();
    gtk_button_set_label(startOrStop_, gettext("Start"));
}

void StudyWindow::startOrStop() {
    bool running = false;
    for (const auto& [reader, inProgress] : Client::shared().trackingInProgress())
        running = running || inProgress;
    if (running)
        stop();
    else
        start();
}

void StudyWindow::share() {
    report(gettext("Sharing …"));
    // The outcome comes on the upload's delivery thread.
    Client::shared().shareTrackingData(
        true, [self = weak_from_this(), &loop = platform_.mainRunLoop()](const Client::Result& result) {
            const std::string outcome =
                result ? gettext("Everything has been shared, and deleted on this machine.") : wordsOf(result.error());
            loop.perform([self, outcome] {
                const auto window = self.lock();
                if (!window || window->window_ == nullptr) return;
                window->report(outcome);
                window->refresh();
            });
        });
}

void StudyWindow::askWhetherToDelete() {
    GtkWidget* question = makeQuestion(window_, gettext("Delete everything on this machine?"),
                                       gettext("What has been shared stays with the study."));
    GtkWidget* deletion = gtk_dialog_add_button(GTK_DIALOG(question), gettext("_Delete"), GTK_RESPONSE_ACCEPT);
    gtk_widget_add_css_class(deletion, "destructive-action");
    g_signal_connect(question, "response", G_CALLBACK(+[](GtkDialog* dialog, int response, StudyWindow* window) {
                         gtk_window_destroy(GTK_WINDOW(dialog));
                         if (response == GTK_RESPONSE_ACCEPT) window->deleteEverything();
                     }),
                     this);
    gtk_window_present(GTK_WINDOW(question));
}

void StudyWindow::deleteEverything() {
    Client::shared().deleteTrackingData();
    samples_.emplace(platform_);
    report(gettext("Everything has been deleted on this machine."));
    refresh();
}

void StudyWindow::askWhetherToWithdraw() {
    enum Answer { keepRecords = 1, deleteRecords = 2 };
    GtkWidget* question = makeQuestion(window_, gettext("Withdraw your consent?"),
                                       gettext("Nothing more is measured then. What has been shared stays with the "
                                               "study; what is still on this machine is deleted if you like."));
    gtk_dialog_add_button(GTK_DIALOG(question), gettext("_Withdraw"), keepRecords);
    gtk_dialog_add_button(GTK_DIALOG(question), gettext("Withdraw and _delete"), deleteRecords);
    g_signal_connect(question, "response", G_CALLBACK(+[](GtkDialog* dialog, int response, StudyWindow* window) {
                         gtk_window_destroy(GTK_WINDOW(dialog));
                         if (response == keepRecords || response == deleteRecords)
                             window->withdrawConsent(response == deleteRecords);
                     }),
                     this);
    gtk_window_present(GTK_WINDOW(question));
}

void StudyWindow::withdrawConsent(bool deletesRecords) {
    Client& client = Client::shared();
    client.stopTracking();
    for (const char* flag : {"hasConsentedToTrackDistance", "hasConsentedToTrackAmbientLight"})
        platform_.userDefaults().removeObjectForKey(flag);
    if (deletesRecords) {
        client.deleteTrackingData();
        // A measurement that had begun stores its sample within three seconds.
        platform_.dispatchQueues().backgroundAfter(std::chrono::seconds(4),
                                                   [&loop = platform_.mainRunLoop(), self = weak_from_this()] {
                                                       loop.perform([self] {
                                                           const auto window = self.lock();
                                                           if (window && !window->samples_)
                                                               Client::shared().deleteTrackingData();
                                                       });
                                                   });
    }
    refreshing_->invalidate();
    charts_.clear();
    samples_.reset();
    faceTrackingHost_.reset();
    showWithdrawal();
}

void StudyWindow::showWithdrawal() {
    GtkWidget* page = column(16);
    gtk_widget_set_valign(page, GTK_ALIGN_CENTER);
    gtk_box_append(GTK_BOX(page), text(gettext("You have withdrawn your consent. Nothing is measured.")));
    GtkWidget* again = makeButton(gettext("Ask again"), &StudyWindow::showConsentScreen);
    gtk_box_append(GTK_BOX(page), again);
    gtk_window_set_child(window_, page);
    gtk_window_set_focus(window_, again);
}

void StudyWindow::refresh() {
    if (window_ == nullptr || !samples_) return;
    samples_->update();
    samples_->dropBefore(platform_.clock().secondsSince1970() - Chart::seconds);
    const std::string count =
        gettext("Records on this machine:") + (" " + std::to_string(Client::shared().trackingDataCount()));
    gtk_label_set_text(count_, count.c_str());
    for (GtkWidget* chart : charts_)
        gtk_widget_queue_draw(chart);
}

void StudyWindow::report(const std::string& line) {
    if (!samples_) return;  // the consent has been withdrawn meanwhile, and the page has gone
    gtk_label_set_text(status_, line.c_str());
}

}  // namespace gtk_host
