#include "store/stored_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <span>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/shared/private_files.h"

namespace tarvex::tool {
namespace {

using namespace std::chrono_literals;
using platform::FileDescriptor;
using Failure = std::unexpected<std::string>;

/// A range of bytes that SQLite locks, in the database or in the log's index; they are part of its file format.
struct Range {
    off_t begin;
    off_t length;
};
constexpr Range databaseReaders{.begin = 0x40000002, .length = 510};
constexpr Range checkpoint{.begin = 121, .length = 1};
constexpr Range logReader{.begin = 124, .length = 1};  // whoever begins the log anew needs it for itself
constexpr Range connections{.begin = 128, .length = 1};

struct flock lockOn(Range range, short kind) {
    struct flock lock{};
    lock.l_type = kind;
    lock.l_whence = SEEK_SET;
    lock.l_start = range.begin;
    lock.l_len = range.length;
    return lock;
}

/// Held until the descriptor is closed, by the descriptor and not by the process.
bool share(const FileDescriptor& file, Range range) {
    auto lock = lockOn(range, F_RDLCK);
    return ::fcntl(file.number(), F_OFD_SETLK, &lock) == 0;
}

std::optional<pid_t> holderOf(const std::filesystem::path& path, Range range) {
    const auto file = FileDescriptor::open(path, O_RDONLY | O_NONBLOCK);
    auto lock = lockOn(range, F_WRLCK);
    if (!file || ::fcntl(file->number(), F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK) return std::nullopt;
    return lock.l_pid > 0 ? lock.l_pid : 0;
}

std::string becauseOf(int code) {
    return ": " + std::generic_category().message(code) + ".";
}

std::expected<FileDescriptor, std::string> openDatabase(const std::filesystem::path& path) {
    auto file = FileDescriptor::open(path, O_RDONLY | O_NONBLOCK);
    if (!file && errno == ENOENT)
        return Failure(path.parent_path().string() + " holds no " + path.filename().string() + ".");
    if (!file) return Failure(path.string() + " cannot be read" + becauseOf(errno));
    struct stat status{};
    if (::fstat(file->number(), &status) != 0 || !S_ISREG(status.st_mode))
        return Failure(path.string() + " is no file.");
    return *std::move(file);
}

bool writeAll(const FileDescriptor& file, std::span<const char> bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(file.number(), bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) return false;
        bytes = bytes.subspan(static_cast<std::size_t>(count > 0 ? count : 0));
    }
    return true;
}

std::expected<void, std::string> copy(const FileDescriptor& from, const std::string& name,
                                      const std::filesystem::path& target) {
    const int created = ::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, platform::privateFile);
    if (created < 0) return Failure("The copy " + target.string() + " cannot be made" + becauseOf(errno));
    const FileDescriptor file(created);
    std::vector<char> piece(std::size_t{1} << 20U);
    for (off_t place = 0;;) {
        const ssize_t count = ::pread(from.number(), piece.data(), piece.size(), place);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return Failure(name + " cannot be read" + becauseOf(errno));
        if (count == 0) return {};
        if (!writeAll(file, std::span(piece).first(static_cast<std::size_t>(count))))
            return Failure("The copy " + target.string() + " cannot be written" + becauseOf(errno));
        place += count;
    }
}

}  // namespace

std::optional<pid_t> processThatUses(const std::filesystem::path& database) {
    if (const auto process = holderOf(database.native() + "-shm", connections)) return process;
    return holderOf(database, {.begin = databaseReaders.begin - 2, .length = databaseReaders.length + 2});
}

std::expected<QuietDatabase, std::string> QuietDatabase::hold(const std::filesystem::path& database) {
    const auto deadline = std::chrono::steady_clock::now() + 2s;
    do {
        auto file = openDatabase(database);
        if (!file) return Failure(file.error());
        QuietDatabase quiet(database, *std::move(file));
        if (auto index = FileDescriptor::open(database.native() + "-shm", O_RDONLY)) {
            quiet.index_.emplace(*std::move(index));
        } else if (errno != ENOENT) {
            return Failure(database.string() + "-shm cannot be read" + becauseOf(errno));
        }
        const bool isIndexQuiet =
            !quiet.index_ || (share(*quiet.index_, checkpoint) && share(*quiet.index_, logReader));
        if (isIndexQuiet && share(quiet.database_, databaseReaders)) return quiet;
        std::this_thread::sleep_for(5ms);
    } while (std::chrono::steady_clock::now() < deadline);
    return Failure(database.string() + " is being changed by another process: try again.");
}

std::expected<void, std::string> QuietDatabase::copyTo(const std::filesystem::path& target) const {
    if (auto copied = copy(database_, path_.string(), target); !copied) return copied;
    const std::string log = path_.native() + "-wal";
    const auto file = FileDescriptor::open(log, O_RDONLY | O_NONBLOCK);
    if (!file && errno != ENOENT) return Failure(log + " cannot be read" + becauseOf(errno));
    if (file) {
        if (auto copied = copy(*file, log, target.native() + "-wal"); !copied) return copied;
    }
    std::error_code failure;
    if (!index_ && std::filesystem::exists(path_.native() + "-shm", failure))
        return Failure(path_.string() + " was opened by another process just now: try again.");
    return {};
}

}  // namespace tarvex::tool
