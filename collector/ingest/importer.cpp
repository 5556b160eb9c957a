#include "collector/ingest/importer.h"

#include <chrono>
#include <limits>
#include <system_error>
#include <utility>

#include "collector/ingest/document_reader.h"
#include "collector/threads.h"

namespace tarvex::collector {
namespace {

using Clock = std::chrono::steady_clock;

// A device that waits gives up after a minute without progress.
constexpr double longestWait = 30;  // seconds

}  // namespace

Response unavailable(const std::string& why) {
    return {.status = 503, .body = why + "\n", .fields = {{"Retry-After", "60"}}};
}

Importer::Importer(Options options) : options_(std::move(options)) {
    for (int worker = 0; worker < options_.workers; ++worker)
        workers_.emplace_back([this] {
            beginThread("import");
            work();
        });
}

Importer::~Importer() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
        changed_.notify_all();
    }
    for (std::thread& worker : workers_)
        worker.join();
    for (Waiting& waiting : waiting_)
        waiting.respond(unavailable("The collector is being stopped."));
}

void Importer::submit(Request request, std::function<void(Response)> respond) {
    const std::lock_guard lock(mutex_);
    waitingBytes_ += request.body.bytes;
    waiting_.push_back({.request = std::move(request), .respond = std::move(respond)});
    changed_.notify_one();
}

bool Importer::isBusy() const {
    const std::lock_guard lock(mutex_);
    return isEnding_ || static_cast<double>(waitingBytes_) / bytesPerSecond_ > longestWait;
}

Importer::Totals Importer::totals() const {
    const std::lock_guard lock(mutex_);
    return totals_;
}

void Importer::work() {
    std::unique_ptr<Store> store;
    while (true) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return isEnding_ || !waiting_.empty(); });
        if (isEnding_) return;
        const Waiting next = std::move(waiting_.front());
        waiting_.pop_front();
        lock.unlock();

        const auto begin = Clock::now();
        Response response = take(store, next.request);
        const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
        {
            const std::lock_guard guard(mutex_);
            waitingBytes_ -= next.request.body.bytes;
            // Small bodies say little about the speed of large ones.
            constexpr double weight = 0.2;
            constexpr std::uint64_t tellingBytes = 100'000;
            if (next.request.body.bytes > tellingBytes)
                bytesPerSecond_ += weight * (static_cast<double>(next.request.body.bytes) / seconds - bytesPerSecond_);
        }
        next.respond(std::move(response));
    }
}

/// The answer to one body. A store that has failed is opened anew for the next one.
Response Importer::take(std::unique_ptr<Store>& store, const Request& request) {
    try {
        if (!store) store = options_.open();
        const Receipt receipt = import(*store, request);
        const std::lock_guard lock(mutex_);
        ++totals_.documents;
        totals_.samples += receipt.samples;
        totals_.fresh += receipt.fresh;
        return {};
    } catch (const NotADocument& refusal) {
        count(&Totals::refused);
        log("refused a body from " + request.head.peer + ": " + refusal.what());
        return {.status = 400, .body = std::string(refusal.what()) + "\n"};
    } catch (const StoreUnavailable& failure) {
        store.reset();
        log(std::string("cannot store: ") + failure.what());
    } catch (const std::system_error& failure) {
        log(std::string("cannot spool: ") + failure.what());
    } catch (const std::bad_alloc&) {
        log("cannot import: there is not enough memory");
    }
    count(&Totals::unavailable);
    return unavailable("The collector cannot store anything now.");
}

Receipt Importer::import(Store& store, const Request& request) {
    if (auto known = store.countRepeat(request.body)) return *known;
    const Document document = readDocument(request.file, options_.spool);
    const bool waits = options_.needsEnrolment && !options_.enrolled.contains(document.sender.participant);
    const double expired = options_.expired ? options_.expired() : -std::numeric_limits<double>::infinity();
    return store.import(request.body, document, waits, expired);
}

void Importer::count(std::uint64_t Totals::* total, std::uint64_t number) {
    const std::lock_guard lock(mutex_);
    totals_.*total += number;
}

void Importer::log(const std::string& line) const {
    if (options_.log) options_.log(line);
}

}  // namespace tarvex::collector
