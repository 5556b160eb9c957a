#pragma once

#include <map>
#include <string>
#include <string_view>

namespace tarvex::collector {

/// The statements of an SQL file, by their names. A line `-- name: NAME` begins each; several statements that belong
/// together may follow.
class Statements {
public:
    /// Throws `std::invalid_argument` when a name comes twice, or text before the first.
    explicit Statements(std::string_view file);

    /// Throws `std::out_of_range` when there is none of this name.
    const std::string& at(const std::string& name) const { return statements_.at(name); }

private:
    std::map<std::string, std::string> statements_;
};

}  // namespace tarvex::collector
