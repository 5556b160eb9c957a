#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "collector/http/server.h"
#include "collector/store/store.h"

namespace tarvex::collector {

/// Takes posted bodies, one after the other, into the store, and answers each when what it holds is safe. Thread-safe.
class Importer {
public:
    struct Options {
        std::function<std::unique_ptr<Store>()> open;  ///< a store for the calling thread
        std::filesystem::path spool;
        int workers = 1;
        bool needsEnrolment = false;
        std::set<std::string> enrolled = {};                    ///< need not wait in the pen
        std::function<double()> expired = nullptr;              ///< samples before this time are dropped
        std::function<void(const std::string&)> log = nullptr;  ///< a line for the journal; called on any thread
    };

    explicit Importer(Options options);
    /// Finishes the imports in hand, and answers the waiting ones with 503.
    ~Importer();
    Importer(const Importer&) = delete;
    Importer& operator=(const Importer&) = delete;

    /// Does not wait. `respond` is called once, on a thread of this.
    void submit(Request request, std::function<void(Response)> respond);

    /// True while a body that came now would wait for more than half a minute, as far as that shows.
    bool isBusy() const;

    struct Totals {
        std::uint64_t documents = 0;
        std::uint64_t samples = 0;
        std::uint64_t fresh = 0;
        std::uint64_t refused = 0;      ///< bodies that are no documents
        std::uint64_t unavailable = 0;  ///< answers that the store could not take it
    };
    Totals totals() const;

private:
    struct Waiting {
        Request request;
        std::function<void(Response)> respond;
    };

    void work();
    Response take(std::unique_ptr<Store>& store, const Request& request);
    Receipt import(Store& store, const Request& request);
    void count(std::uint64_t Totals::* total, std::uint64_t number = 1);
    void log(const std::string& line) const;

    const Options options_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Waiting> waiting_;
    std::uint64_t waitingBytes_ = 0;
    double bytesPerSecond_ = 20e6;  ///< measured as it goes
    Totals totals_;
    bool isEnding_ = false;
    std::vector<std::thread> workers_;
};

/// What is answered while the store cannot take anything.
Response unavailable(const std::string& why);

}  // namespace tarvex::collector
