#include "collector/exports/participant_archive.h"

#include <archive.h>
#include <archive_entry.h>

#include <ctime>
#include <exception>
#include <memory>
#include <stdexcept>

namespace tarvex::collector {
namespace {

struct FreeArchive {
    void operator()(archive* written) const { archive_write_free(written); }
};
struct FreeEntry {
    void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};

/// An archive whose bytes go to a sink.
class Archive {
public:
    explicit Archive(const Sink& sink) : sink_(sink), archive_(archive_write_new()) {
        check(archive_write_set_format_zip(archive_.get()));
        check(archive_write_set_bytes_per_block(archive_.get(), 0));
        check(archive_write_open2(archive_.get(), this, nullptr, write, nullptr, nullptr));
    }

    void begin(const std::string& name) {
        const std::unique_ptr<archive_entry, FreeEntry> entry(archive_entry_new());
        archive_entry_set_pathname(entry.get(), name.c_str());
        archive_entry_set_filetype(entry.get(), AE_IFREG);
        archive_entry_set_perm(entry.get(), 0600);
        archive_entry_set_mtime(entry.get(), std::time(nullptr), 0);
        check(archive_write_header(archive_.get(), entry.get()));
    }
    void put(std::string_view piece) {
        if (archive_write_data(archive_.get(), piece.data(), piece.size()) < 0) fail();
    }
    void finish() { check(archive_write_close(archive_.get())); }

private:
    static la_ssize_t write(archive* written, void* self, const void* bytes, std::size_t size) {
        auto& owner = *static_cast<Archive*>(self);
        // No exception may pass through the library.
        try {
            owner.sink_({static_cast<const char*>(bytes), size});
            return static_cast<la_ssize_t>(size);
        } catch (...) {
            owner.failure_ = std::current_exception();
            archive_set_error(written, -1, "the archive is not taken");
            return -1;
        }
    }
    void check(int result) const {
        if (result != ARCHIVE_OK) fail();
    }
    [[noreturn]] void fail() const {
        if (failure_) std::rethrow_exception(failure_);
        const char* why = archive_error_string(archive_.get());
        throw std::runtime_error(std::string("the archive cannot be written: ") + (why != nullptr ? why : "no reason"));
    }

    const Sink& sink_;
    std::exception_ptr failure_;
    std::unique_ptr<archive, FreeArchive> archive_;
};

}  // namespace

void archiveParticipant(Store& store, const std::string& participant, const Sink& sink) {
    const Selection selection{.participant = participant, .time = {}, .includesPen = true};
    Archive archive(sink);
    for (const Kind kind : {Kind::light, Kind::distance, Kind::other}) {
        archive.begin(std::string(nameOf(kind)) + ".csv");
        exportSamples(store, kind, Format::csv, selection, [&](std::string_view piece) { archive.put(piece); });
    }
    archive.begin("dictionary.csv");
    archive.put(dataDictionary());
    archive.finish();
}

}  // namespace tarvex::collector
