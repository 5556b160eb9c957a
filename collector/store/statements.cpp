#include "collector/store/statements.h"

#include <stdexcept>

namespace tarvex::collector {

Statements::Statements(std::string_view file) {
    constexpr std::string_view mark = "-- name: ";
    std::string* statement = nullptr;
    while (!file.empty()) {
        const std::string_view line = file.substr(0, file.find('\n'));
        file.remove_prefix(std::min(line.size() + 1, file.size()));
        if (line.starts_with(mark)) {
            const auto [place, isNew] = statements_.try_emplace(std::string(line.substr(mark.size())));
            if (!isNew) throw std::invalid_argument("two statements have the name " + place->first);
            statement = &place->second;
        } else if (statement != nullptr) {
            statement->append(line).append("\n");
        } else if (!line.empty() && !line.starts_with("--")) {
            throw std::invalid_argument("a statement without a name");
        }
    }
}

}  // namespace tarvex::collector
