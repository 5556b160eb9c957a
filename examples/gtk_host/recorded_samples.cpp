#include "recorded_samples.h"

#include <tarvex/data_entry.h>
#include <tarvex/platform/json.h>

#include <algorithm>
#include <variant>

namespace gtk_host {

using namespace tarvex;

void Signal::dropBefore(double begin) {
    std::erase_if(points, [begin](const Point& point) { return point.time < begin; });
}

RecordedSamples::RecordedSamples(platform::Platform& platform)
    : store_(platform.objectStore().makeContainer("TrackingDataContainer")) {
    if (!store_->loadPersistentStores()) store_.reset();
}

void RecordedSamples::update() {
    if (!store_) return;
    double latest = latest_;
    const auto visit = [&](const platform::ManagedObjectView& record) {
        const auto& [time, type, data] = record;
        if (!time || !data || *time <= latest_) return true;
        latest = std::max(latest, *time);
        const auto json = platform::decodeJson({reinterpret_cast<const char*>(data->data()), data->size()});
        const auto* numbers = json ? std::get_if<platform::JsonValue::Object>(&json->value) : nullptr;
        if (numbers == nullptr) return true;
        for (const auto& [name, member] : *numbers) {
            if (const auto* number = std::get_if<double>(&member.value))
                signals_[name].points.push_back({.time = *time, .value = *number});
        }
        return true;
    };
    if (store_->viewContext().fetch(DataEntry::fetchRequest(), visit)) latest_ = latest;
}

void RecordedSamples::dropBefore(double begin) {
    for (auto& [name, signal] : signals_)
        signal.dropBefore(begin);
}

}  // namespace gtk_host
