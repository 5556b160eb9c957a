#include "collector/service/announcement.h"

#include <cerrno>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include "collector/whole_file.h"

namespace tarvex::collector {
namespace {

/// The certificates of a file, and nothing else: it may hold the key as well.
std::string certificatesIn(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    if (!stream) throw std::system_error(errno, std::generic_category(), file.string());
    constexpr std::string_view begin = "-----BEGIN CERTIFICATE-----";
    constexpr std::string_view end = "-----END CERTIFICATE-----";
    std::string certificates;
    for (auto first = text.find(begin); first != std::string::npos;) {
        const auto last = text.find(end, first);
        if (last == std::string::npos) break;
        certificates += text.substr(first, last + end.size() - first) + "\n";
        first = text.find(begin, last);
    }
    return certificates;
}

}  // namespace

Announcement::Announcement(std::filesystem::path directory, const Contents& contents)
    : directory_(std::move(directory)) {
    std::filesystem::create_directories(directory_);
    update(contents);
}

void Announcement::update(const Contents& contents) {
    if (!contents.certificate.empty())
        writeWholeFile(directory_ / "certificate.pem", certificatesIn(contents.certificate), 0644);
    writeWholeFile(directory_ / "page", contents.pageAddress + "\n", 0600);
    writeWholeFile(directory_ / "port", std::to_string(contents.port) + "\n", 0644);
}

Announcement::~Announcement() {
    std::error_code ignored;
    for (const char* file : {"port", "page"})
        std::filesystem::remove(directory_ / file, ignored);
}

}  // namespace tarvex::collector
