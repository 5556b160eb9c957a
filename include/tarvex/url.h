#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "tarvex/export.h"

namespace tarvex {

/// An absolute URL (RFC 3986), kept as the text it was parsed from. Reentrant.
class TARVEX_EXPORT Url {
public:
    /// Absent for a string that is not an absolute URL. Brackets pass also in a path, a query and a fragment.
    /// Thread-safe.
    static std::optional<Url> parse(std::string_view text);

    /// The text as it was parsed: nothing is normalised.
    const std::string& string() const noexcept { return text_; }

private:
    explicit Url(std::string text) : text_(std::move(text)) {}

    std::string text_;
};

}  // namespace tarvex
