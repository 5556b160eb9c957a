#pragma once

#include <tarvex/platform/platform.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace gtk_host {

/// One number over time.
struct Signal {
    struct Point {
        double time;  // seconds since 1970
        double value;
    };
    std::vector<Point> points;

    /// Only the points from `begin` on.
    void dropBefore(double begin);
};

/// What the library has stored, read back through a store of the host's own on the same files.
class RecordedSamples {
public:
    explicit RecordedSamples(tarvex::platform::Platform& platform);

    /// Reads what is stored now. What was seen once stays, also when it has been shared and deleted since.
    void update();

    /// By the names of the samples' numbers: "lux", "leftEyeDistanceFromCamera", "rightEyeDistanceFromCamera", …
    const Signal& signal(const std::string& name) { return signals_[name]; }
    void dropBefore(double begin);

private:
    std::unique_ptr<tarvex::platform::PersistentContainer> store_;
    std::map<std::string, Signal> signals_;
    double latest_ = 0;
};

}  // namespace gtk_host
