#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "collector/store/document.h"

namespace tarvex::collector {

/// One record of a document while it is read. Reused from record to record.
class Record {
public:
    void begin();

    void setTime(double time) {
        time_ = time;
        hasTime_ = true;
    }
    void setType(std::string_view type) {
        type_ = type;
        hasType_ = true;
    }
    void addValue(double value);
    void setName(std::string_view name);
    void haveData() { hasData_ = true; }
    /// The first reason counts.
    void refuse(std::string_view why) {
        if (!refusal_) refusal_ = why;
    }

    /// Puts the record among the document's samples; false, with the reason, when it cannot be read.
    bool finish(Document& document, std::string& reason);

private:
    static constexpr std::size_t knownNames = 7;

    bool hasExactly(unsigned names) const { return known_ == names && others_.empty(); }
    std::string others() const;

    bool hasTime_ = false;
    double time_ = 0;
    bool hasType_ = false;
    std::string type_;
    bool hasData_ = false;
    std::optional<std::string> refusal_;
    std::size_t place_ = 0;  ///< of the name that came last, among the known ones
    std::string name_;       ///< the one that came last, when it is none of them
    unsigned known_ = 0;     ///< a bit for each name that has come
    std::array<double, knownNames> values_{};
    std::vector<std::pair<std::string, double>> others_;
};

/// True when the text is UTF-8 throughout.
bool isUtf8(std::string_view text);

}  // namespace tarvex::collector
