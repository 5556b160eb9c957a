#include "collector/commands/export_files.h"

#include <openssl/evp.h>

#include <array>
#include <fstream>
#include <memory>
#include <stdexcept>

namespace tarvex::collector {
namespace {

/// A file that appears when it is whole, and its SHA-256.
class SummedFile {
public:
    explicit SummedFile(std::filesystem::path file)
        : file_(std::move(file)), unfinished_(file_.string() + ".part"), digest_(EVP_MD_CTX_new(), EVP_MD_CTX_free) {
        if (std::filesystem::exists(file_)) throw std::runtime_error(file_.string() + " is there already");
        stream_.open(unfinished_, std::ios::binary | std::ios::trunc);
        if (!digest_ || EVP_DigestInit_ex(digest_.get(), EVP_sha256(), nullptr) != 1)
            throw std::runtime_error("OpenSSL has no SHA-256");
    }
    ~SummedFile() {
        std::error_code ignored;
        std::filesystem::remove(unfinished_, ignored);
    }
    SummedFile(const SummedFile&) = delete;
    SummedFile& operator=(const SummedFile&) = delete;

    void write(std::string_view piece) {
        EVP_DigestUpdate(digest_.get(), piece.data(), piece.size());
        stream_ << piece;
        if (!stream_) throw std::runtime_error(unfinished_.string() + " cannot be written");
    }

    /// The line of SHA256SUMS.
    std::string finish() {
        stream_.close();
        if (!stream_) throw std::runtime_error(unfinished_.string() + " cannot be written");
        std::filesystem::rename(unfinished_, file_);
        std::array<unsigned char, EVP_MAX_MD_SIZE> sum{};
        unsigned size = 0;
        EVP_DigestFinal_ex(digest_.get(), sum.data(), &size);
        std::string line;
        for (unsigned place = 0; place < size; ++place) {
            constexpr std::string_view digits = "0123456789abcdef";
            line.push_back(digits[sum[place] >> 4U]);
            line.push_back(digits[sum[place] & 0xfU]);
        }
        return line + "  " + file_.filename().string() + "\n";
    }

private:
    std::filesystem::path file_;
    std::filesystem::path unfinished_;
    std::ofstream stream_;
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> digest_;
};

}  // namespace

void exportFiles(Store& store, const std::set<Kind>& kinds, Format format, const Selection& selection,
                 const std::filesystem::path& directory) {
    std::filesystem::create_directories(directory);
    std::string sums;
    for (const Kind kind : kinds) {
        SummedFile file(directory / std::string(nameOf(kind)).append(".").append(nameOf(format)));
        exportSamples(store, kind, format, selection, [&](std::string_view piece) { file.write(piece); });
        sums += file.finish();
    }
    SummedFile dictionary(directory / "dictionary.csv");
    dictionary.write(dataDictionary());
    sums += dictionary.finish();
    SummedFile list(directory / "SHA256SUMS");
    list.write(sums);
    list.finish();
}

}  // namespace tarvex::collector
