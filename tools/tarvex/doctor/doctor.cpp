#include "doctor/doctor.h"

#include <chrono>
#include <functional>

#include "doctor/checks.h"
#include "doctor/separate_look.h"

namespace tarvex::tool {
namespace {

using namespace std::chrono_literals;

/// What a look finds that may hang in a driver or a library; `otherwise` when it does.
Findings within(std::chrono::seconds patience, const std::function<Findings()>& look, const Finding& otherwise) {
    SeparateLook separate(look);
    return separate.findings(std::chrono::steady_clock::now() + patience).value_or(Findings{otherwise});
}

}  // namespace

Findings examine(const Host& host, const Examination& examination) {
    Findings all;
    const auto add = [&all](Findings findings) {
        for (Finding& finding : findings)
            all.push_back(std::move(finding));
    };
    add(checkBundle(host, examination.distance));
    add(checkData(host, examination));
    if (examination.light) add(checkLightSensors(examination.sensors));
    if (examination.distance) {
        add(checkVideoDevices("/dev"));
        add(within(10s, checkCameras,
                   bad("camera", "the look for cameras does not end",
                       "a driver or the session bus hangs: plug the camera in anew, log in anew, or start the device "
                       "anew")));
        add(checkElements());
        add(checkFaceModels());
    }
    // Consent asks for the camera, whatever is measured.
    add(within(
        20s, [&host] { return checkPortal(host); },
        bad("desktop portal", "the session bus lets connect and does not answer", "log in anew")));
    add(checkMainLoop(host));
    add(checkBackend({}));
    return all;
}

}  // namespace tarvex::tool
