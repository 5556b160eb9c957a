#include "collector/ingest/record.h"

#include <rapidjson/encodings.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace tarvex::collector {
namespace {

constexpr std::array<std::string_view, 7> names{
    "lux", "channel0", "channel1", "channel2", "channel3", "leftEyeDistanceFromCamera", "rightEyeDistanceFromCamera",
};
constexpr unsigned lightNames = 0b0011111;
constexpr unsigned distanceNames = 0b1100000;
// More than any sensor has; a record is kept in memory.
constexpr std::size_t mostNames = 64;

std::string shortest(double number) {
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number);
    return {text.data(), end.ptr};
}

}  // namespace

bool isUtf8(std::string_view text) {
    // The quick way for what nearly all texts are.
    if (std::ranges::all_of(text, [](char letter) { return static_cast<signed char>(letter) >= 0; })) return true;
    rapidjson::MemoryStream bytes(text.data(), text.size());
    while (bytes.Tell() < text.size()) {
        unsigned codepoint = 0;
        if (!rapidjson::UTF8<>::Decode(bytes, &codepoint)) return false;
    }
    return bytes.Tell() == text.size();
}

void Record::begin() {
    hasTime_ = false;
    hasType_ = false;
    hasData_ = false;
    refusal_.reset();
    known_ = 0;
    place_ = names.size() - 1;
    others_.clear();
}

void Record::setName(std::string_view name) {
    // Mostly the one after the last one.
    const std::size_t likely = (place_ + 1) % names.size();
    place_ = names[likely] == name ? likely : static_cast<std::size_t>(std::ranges::find(names, name) - names.begin());
    if (place_ == names.size()) name_ = name;
}

void Record::addValue(double value) {
    if (place_ < names.size()) {
        if ((known_ & (1U << place_)) != 0) refuse("a name stands in it twice");
        known_ |= 1U << place_;
        values_[place_] = value;
        return;
    }
    if (!isUtf8(name_)) refuse("a name is no UTF-8");
    if (others_.size() == mostNames) return refuse("it has more than 64 names");
    others_.emplace_back(name_, value);
}

bool Record::finish(Document& document, std::string& reason) {
    if (!hasTime_) refuse("it has no time stamp that is a number");
    if (!hasType_) refuse("it has no type");
    if (!hasData_) refuse("it has no data");
    if (hasType_ && !isUtf8(type_)) refuse("its type is no UTF-8");
    if (others_.size() > 1) std::ranges::sort(others_);
    if (std::ranges::adjacent_find(others_, {}, &std::pair<std::string, double>::first) != others_.end())
        refuse("a name stands in it twice");
    if (refusal_) {
        reason = *refusal_;
        return false;
    }
    if (type_ == "ambient_light" && hasExactly(lightNames))
        document.light.push(
            {.time = time_, .lux = values_[0], .channels = {values_[1], values_[2], values_[3], values_[4]}});
    else if (type_ == "distance" && hasExactly(distanceNames))
        document.distances.push({.time = time_, .leftEye = values_[5], .rightEye = values_[6]});
    else
        document.others.push({.time = time_, .type = type_, .values = others()});
    return true;
}

std::string Record::others() const {
    auto members = others_;
    for (std::size_t place = 0; place < names.size(); ++place)
        if ((known_ & (1U << place)) != 0) members.emplace_back(names[place], values_[place]);
    std::ranges::sort(members);
    rapidjson::StringBuffer json;
    rapidjson::Writer<rapidjson::StringBuffer> writer(json);
    writer.StartObject();
    for (const auto& [name, value] : members) {
        writer.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
        const std::string text = shortest(value);
        writer.RawValue(text.data(), text.size(), rapidjson::kNumberType);
    }
    writer.EndObject();
    return {json.GetString(), json.GetSize()};
}

}  // namespace tarvex::collector
