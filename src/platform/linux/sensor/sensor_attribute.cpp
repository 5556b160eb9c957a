#include "platform/linux/sensor/sensor_attribute.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <span>

namespace tarvex::platform {

namespace {

// Numbers of the kernel are far shorter; a file that is longer holds something else.
constexpr std::size_t longestAttribute = 256;

class AttributeFile {
public:
    // O_NONBLOCK: opening a FIFO in an attribute's place must not wait for a writer.
    explicit AttributeFile(const std::filesystem::path& path)
        : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {}
    ~AttributeFile() {
        if (descriptor_ >= 0) close(descriptor_);
    }
    AttributeFile(const AttributeFile&) = delete;
    AttributeFile& operator=(const AttributeFile&) = delete;

    [[nodiscard]] bool isRegular() const {
        struct stat status = {};
        return descriptor_ >= 0 && fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode);
    }

    /// The number of bytes read, up to the size of `buffer`.
    [[nodiscard]] std::optional<std::size_t> read(std::span<char> buffer) const {
        std::size_t filled = 0;
        while (filled < buffer.size()) {
            const ssize_t count = ::read(descriptor_, buffer.data() + filled, buffer.size() - filled);
            if (count == 0) break;
            if (count > 0)
                filled += static_cast<std::size_t>(count);
            else if (errno != EINTR)
                return std::nullopt;
        }
        return filled;
    }

private:
    int descriptor_;
};

}  // namespace

std::optional<double> parseSensorNumber(std::string_view text) {
    const std::size_t last = text.find_last_not_of(" \t\r\n");
    if (last == std::string_view::npos) return std::nullopt;
    text = text.substr(0, last + 1);
    double number = 0;
    const auto [rest, error] = std::from_chars(text.begin(), text.end(), number);
    if (error != std::errc{} || rest != text.end() || !std::isfinite(number)) return std::nullopt;
    return number;
}

std::optional<double> readSensorNumber(const std::filesystem::path& attribute) {
    const AttributeFile file(attribute);
    if (!file.isRegular()) return std::nullopt;
    std::array<char, longestAttribute + 1> buffer = {};
    const auto length = file.read(buffer);
    if (!length || *length > longestAttribute) return std::nullopt;
    return parseSensorNumber({buffer.data(), *length});
}

}  // namespace tarvex::platform
