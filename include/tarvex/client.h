#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tarvex/data_reader.h"
#include "tarvex/export.h"
#include "tarvex/information_view.h"
#include "tarvex/tarvex_error.h"
#include "tarvex/url.h"
#include "tarvex/view.h"

namespace tarvex {

class DataSharing;
class PersistenceController;
class TrackingSessions;

namespace platform {
class Platform;
}

/// The one object through which a host drives the library.
///
/// Thread-safe, with the exception of `informationView`, `informationViewController` and `shareTrackingData`, which are
/// thread-bound: they belong on the main thread, whose run loop runs, and a debug build of the library ends a process
/// that calls them on another one. No lock is held while a host callback runs: it may call the client. A host callback
/// must not throw: an exception out of one terminates the process.
class TARVEX_EXPORT Client {
public:
    /// Success, or the error.
    using Result = std::expected<void, TarvexError>;
    // An empty completion is not called.

    /// Receives the failure of each reader that could not start, with its kind key, and at the end the success, without
    /// a reader. Called by `startTracking` itself, on its thread.
    using StartCompletion = std::function<void(Result, std::optional<DataReader>)>;
    /// Receives an upload's outcome. Called on the upload's delivery thread, or by `shareTrackingData` itself.
    using ShareCompletion = std::function<void(Result)>;
    /// Receives the user's decision. Called on any thread, and on two at a time when the user clicks twice. It may
    /// block, and may start and stop tracking.
    using ConsentCompletion = std::function<void(bool)>;

    /// The facade, created on first use and never destroyed. Thread-safe.
    ///
    /// The first use registers the background upload and stores a user identifier on a fresh installation; where that
    /// fails, each share tries it again.
    static Client& shared();

    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// The kinds of reader that are being sampled, under their kind keys; false for a kind that was stopped. A copy:
    /// safe to iterate while stopping. Thread-safe.
    std::unordered_map<DataReader, bool> trackingInProgress() const;

    /// True when the user has consented to this kind of reader; read afresh from the user defaults each time.
    /// Thread-safe.
    bool hasConsentedToTracking(const DataReader& reader) const;

    /// The consent screen as a value, for a host that renders `body()` itself. Thread-bound.
    ///
    /// Without `applicationName` the screen names the host by its Info.plist ("CFBundleDisplayName", else
    /// "CFBundleName"), else "Unknown". `completion` receives the user's decision on a thread of the platform's
    /// choice; the flags of `reader` are stored before it receives true. All copies of the view call the same closure.
    /// The library keeps no reference to the view.
    InformationView informationView(std::optional<std::string> applicationName, std::optional<std::string> description,
                                    std::vector<DataReader> reader, std::optional<Url> learnMoreURL,
                                    ConsentCompletion completion) const;

    /// The same screen in a view controller, from which a UI module makes its widget; a new one on every call.
    /// Thread-bound.
    std::shared_ptr<ViewController> informationViewController(std::optional<std::string> applicationName,
                                                              std::optional<std::string> description,
                                                              std::vector<DataReader> reader,
                                                              std::optional<Url> learnMoreURL,
                                                              ConsentCompletion completion) const;

    /// Starts a sampling session for each of `readers` that is not running yet. Thread-safe.
    ///
    /// `completion` is called on the calling thread, before this returns: once for every reader that fails, with the
    /// failure and the reader's kind key, then exactly once with success and no reader. A kind that runs already is
    /// skipped silently and keeps its interval. The first sample comes one interval after the start, on the calling
    /// thread's run loop; the main loop ticks for a thread without one, such as the one of a consent callback. A
    /// distance session needs `view`, which it keeps until it is stopped and releases on the thread that ticks.
    ///
    /// A rate of zero or below samples once a second.
    void startTracking(const std::vector<DataReader>& readers, std::shared_ptr<View> view,
                       const StartCompletion& completion);

    /// Ends the session of this kind of reader, whatever its rate; ignored when none runs. Waits for a tick that is
    /// storing its sample on another thread. Thread-safe.
    void stopTracking(const DataReader& reader);

    /// Ends every session, as above. Thread-safe.
    void stopTracking();

    /// Posts every stored sample as one JSON document. Thread-bound.
    ///
    /// The document is assembled before this returns, on the calling thread; `completion` is called at most once,
    /// before this returns when nothing could be sent (no document, or no thread from the system), otherwise on the
    /// upload's delivery thread. With `deleteIfSuccessfull`, status 200 removes every record that is stored at that
    /// moment, also records taken during the upload; any other outcome removes nothing. Callbacks come one after the
    /// other; transfers continue meanwhile. From the library's exit handler on nothing is sent, and no callback comes.
    ///
    /// Fails with `cannotLoadTrackingData` when the samples cannot be read, and while there is no durable user
    /// identifier to send: the stored one cannot be read, or a new one cannot be stored.
    void shareTrackingData(bool deleteIfSuccessfull, ShareCompletion completion);

    /// Deletes every stored sample, for good: no byte of one stays in the store's files. While another process holds
    /// the store open, those bytes go as soon as that process allows, and on a full disk nothing is deleted until then.
    /// Samples whose commit has failed so far are not stored yet: they stay. Thread-safe.
    void deleteTrackingData();

    /// The number of stored samples, including those whose commit has failed so far; 0 when counting fails.
    /// Thread-safe.
    std::int64_t trackingDataCount() const;

private:
    Client(platform::Platform& platform, PersistenceController& store);

    platform::Platform& platform_;
    PersistenceController& store_;
    std::shared_ptr<TrackingSessions> sessions_;
    std::shared_ptr<DataSharing> sharing_;
};

}  // namespace tarvex
