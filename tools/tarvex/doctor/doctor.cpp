#include "doctor/doctor.h"

#include "doctor/checks.h"

namespace tarvex::tool {

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
        add(checkCameras());
        add(checkFaceModels());
    }
    add(checkPortal(host));  // consent asks for the camera, whatever is measured
    add(checkMainLoop(host));
    add(checkBackend({}));
    return all;
}

}  // namespace tarvex::tool
