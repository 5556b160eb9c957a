#include "store/snapshot.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "platform/sqlite/sqlite_schema.h"
#include "store/stored_files.h"

namespace tarvex::tool {
namespace {

using Failure = std::unexpected<std::string>;
using platform::SqliteConnection;

sigset_t holdBackEndingSignals() {
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&ending, signal);
    sigset_t former;
    pthread_sigmask(SIG_BLOCK, &ending, &former);
    return former;
}

std::string replaced(std::string text, const std::string& part, const std::string& by) {
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + by.size()))
        text.replace(at, part.size(), by);
    return text;
}

}  // namespace

Snapshot::Snapshot(std::filesystem::path original)
    : original_(std::move(original)), formerSignals_(holdBackEndingSignals()) {}

Snapshot::~Snapshot() {
    if (!directory_) return;
    std::error_code failure;
    std::filesystem::remove_all(*directory_, failure);
    pthread_sigmask(SIG_SETMASK, &formerSignals_, nullptr);
}

std::expected<Snapshot, std::string> Snapshot::take(const std::filesystem::path& dataDirectory) {
    std::error_code failure;
    if (!std::filesystem::exists(dataDirectory, failure))
        return Failure(failure ? dataDirectory.string() + " cannot be read: " + failure.message() + "."
                               : "There is no " + dataDirectory.string() + ".");
    if (!std::filesystem::is_directory(dataDirectory, failure))
        return Failure(dataDirectory.string() + " is no directory.");
    const auto place = std::filesystem::temp_directory_path(failure);
    if (failure) return Failure("There is no temporary directory for a copy: " + failure.message() + ".");
    std::string name = place / "tarvex-XXXXXX";
    Snapshot snapshot(dataDirectory);
    if (::mkdtemp(name.data()) == nullptr) {
        const int code = errno;
        pthread_sigmask(SIG_SETMASK, &snapshot.formerSignals_, nullptr);
        return Failure("There is no room for a copy in " + place.string() + ": " +
                       std::generic_category().message(code) + ".");
    }
    snapshot.directory_ = std::make_unique<const std::filesystem::path>(name);
    if (auto filled = snapshot.fill(); !filled) return Failure(filled.error());
    return snapshot;
}

std::expected<void, std::string> Snapshot::fill() const {
    for (const char* name : {storeName, defaultsName}) {
        std::error_code failure;
        const auto database = original_ / name;
        if (name == defaultsName && !std::filesystem::exists(database, failure) && !failure) continue;
        const auto quiet = QuietDatabase::hold(database);
        if (!quiet) return Failure(quiet.error());
        if (auto copied = quiet->copyTo(directory() / name); !copied) return copied;
    }
    return {};
}

std::filesystem::path Snapshot::store() const {
    return original_ / storeName;
}

std::expected<std::unique_ptr<SqliteConnection>, std::string> Snapshot::open(const std::string& name) const {
    auto connection = SqliteConnection::open(directory() / name, nullptr, std::chrono::milliseconds::zero());
    if (!connection) return Failure(sentence(connection.error()));
    return *std::move(connection);
}

std::expected<std::unique_ptr<SqliteConnection>, std::string> Snapshot::openStore() const {
    auto connection = open(storeName);
    if (!connection) return connection;
    if (const auto present = platform::schemaIsPresentIn(**connection); !present) {
        // What is no damage is what another version, or another program, has written.
        if (present.error().description.starts_with("table "))
            return Failure(store().string() +
                           " is not a store of this version (it may be a newer one's, or its tables are damaged).");
        return Failure(sentence(present.error()));
    }
    return connection;
}

std::string Snapshot::sentence(const platform::StoreError& error) const {
    return replaced(error.description, directory().string(), original_.string()) + ".";
}

}  // namespace tarvex::tool
