#pragma once

#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "temporary_directory.h"

namespace tarvex::test {

/// A temporary directory shaped like the kernel's sensor tree.
class SensorTree {
public:
    using Attributes = std::map<std::string, std::string>;

    [[nodiscard]] const std::filesystem::path& root() const { return directory_.path(); }
    [[nodiscard]] std::filesystem::path device(int number) const {
        return root() / ("iio:device" + std::to_string(number));
    }

    void plug(int number, const Attributes& attributes) const {
        std::filesystem::create_directory(device(number));
        for (const auto& [name, value] : attributes)
            set(number, name, value);
    }
    void unplug(int number) const { std::filesystem::remove_all(device(number)); }

    /// In one step, so that a reader sees the old value or the new one.
    void set(int number, const std::string& name, const std::string& value) const {
        const auto fresh = root() / "fresh-attribute";
        std::ofstream(fresh) << value;
        std::filesystem::rename(fresh, device(number) / name);
    }

private:
    TemporaryDirectory directory_;
};

}  // namespace tarvex::test
