#include "platform/linux/data_directory_record.h"

#include <unistd.h>

#include <system_error>

#include "platform/shared/private_directory.h"

namespace tarvex::platform {
namespace {

std::filesystem::path targetFor(const std::string& name) {
    return std::filesystem::path("../..") / name;
}

}  // namespace

std::optional<std::string> DataDirectoryRecord::name() const {
    std::error_code failure;
    const auto target = std::filesystem::read_symlink(link_, failure);
    std::string name = target.filename();
    if (failure || name.empty() || name.starts_with('.') || target != targetFor(name)) return std::nullopt;
    return name;
}

void DataDirectoryRecord::setName(const std::string& name) const {
    createPrivateDirectory(link_.parent_path());
    auto fresh = link_;
    fresh += "~" + std::to_string(::getpid());
    std::error_code failure;
    std::filesystem::remove(fresh, failure);
    std::filesystem::create_symlink(targetFor(name), fresh, failure);
    if (!failure) std::filesystem::rename(fresh, link_, failure);
    if (failure) std::filesystem::remove(fresh, failure);
}

}  // namespace tarvex::platform
