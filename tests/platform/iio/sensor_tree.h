#pragma once

#include "prelude.h"

namespace tarvex::test {

/// A temporary directory shaped like the kernel's sensor tree.
class SensorTree {
public:
    [[nodiscard]] const std::filesystem::path& root() const { return directory_.path(); }
    [[nodiscard]] std::filesystem::path device(int number) const {
        return root() / ("iio:device" + std::to_string(number));
    }

    /// `attributes`: "name=value name=value".
    void plug(int number, const std::string& attributes) const {
        std::filesystem::create_directory(device(number));
        std::istringstream words(attributes);
        for (std::string word; words >> word;)
            set(number, word.substr(0, word.find('=')), word.substr(word.find('=') + 1) + "\n");
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
