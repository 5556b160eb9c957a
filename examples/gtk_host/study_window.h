#pragma once

#include <gtk/gtk.h>
#include <tarvex/client.h>
#include <tarvex/platform/platform.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "recorded_samples.h"

namespace gtk_host {

/// What the window shows in place of a sensor that the machine lacks.
struct Substitutes {
    bool light = false;   ///< a modelled day of light
    bool camera = false;  ///< photographs of faces
};

/// The study's one window: the consent screen first, then what is being measured.
class StudyWindow : public std::enable_shared_from_this<StudyWindow> {
public:
    static std::shared_ptr<StudyWindow> open(GtkApplication* application, tarvex::platform::Platform& platform,
                                             Substitutes substitutes);

    ~StudyWindow();
    StudyWindow(const StudyWindow&) = delete;
    StudyWindow& operator=(const StudyWindow&) = delete;

    void present() const { gtk_window_present(window_); }

private:
    StudyWindow(GtkApplication* application, tarvex::platform::Platform& platform, Substitutes substitutes);

    void showConsentScreen();
    void showRefusal();
    void askAfresh();
    void showStudy();

    GtkWidget* makeCharts();
    GtkWidget* makeButton(const char* words, void (StudyWindow::*action)());
    void start();
    void stop();
    void startOrStop();
    void share();
    void askWhetherToDelete();
    void deleteEverything();
    void askWhetherToWithdraw();
    void withdrawConsent(bool deletesRecords);
    void showWithdrawal();
    void refresh();
    void report(const std::string& line);

    tarvex::platform::Platform& platform_;
    Substitutes substitutes_;
    GtkWindow* window_;
    std::optional<RecordedSamples> samples_;
    std::vector<GtkWidget*> charts_;
    std::shared_ptr<tarvex::View> faceTrackingHost_;
    std::shared_ptr<tarvex::platform::Timer> refreshing_;
    GtkLabel* count_ = nullptr;
    GtkLabel* status_ = nullptr;
    GtkButton* startOrStop_ = nullptr;
};

}  // namespace gtk_host
