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
/// Thread-bound: call it on the main thread, the one whose run loop runs. Only `shared()`, `trackingInProgress`,
/// `hasConsentedToTracking`, `startTracking`, `stopTracking`, `deleteTrackingData` and `trackingDataCount` may be
/// called from any thread, also from within a consent callback. No lock is held while a host callback runs. A host
/// callback must not throw: an exception out of one terminates the process.
class TARVEX_EXPORT Client {
public:
    /// Success, or what went wrong.
    using Result = std::expected<void, TarvexError>;
    // An empty completion is called nowhere.

    /// Told of each reader that could not start, with its kind key, and at the end of success, without a reader.
    using StartCompletion = std::function<void(Result, std::optional<DataReader>)>;
    /// Told of an upload's outcome. Called on the upload's delivery thread, or inside the call that shares.
    using ShareCompletion = std::function<void(Result)>;
    /// Told whether the user consents; on any thread, and on two at a time when the user presses twice. It may take its
    /// time, and may start and stop tracking.
    using ConsentCompletion = std::function<void(bool)>;

    /// The facade, created on first use from whichever thread comes first, and never destroyed.
    ///
    /// The first use registers the background upload and stores a user identifier on a fresh installation; where that
    /// fails, each share tries it again.
    static Client& shared();

    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// Which kinds of reader are being sampled, under their kind keys. A copy: safe to iterate while stopping.
    std::unordered_map<DataReader, bool> trackingInProgress() const;

    /// Whether the user has consented to this kind of reader; read afresh from the user defaults each time.
    bool hasConsentedToTracking(const DataReader& reader) const;

    /// The consent screen as a value, for a host that renders `body()` itself.
    ///
    /// Without `applicationName` the screen names the host by its Info.plist ("CFBundleDisplayName", else
    /// "CFBundleName"), else "Unknown". `completion` gets the user's decision on a thread of the platform's choosing;
    /// the flags of `reader` are stored before it gets true. All copies of the view call the same closure. The library
    /// keeps no reference to the view.
    InformationView informationView(std::optional<std::string> applicationName, std::optional<std::string> description,
                                    std::vector<DataReader> reader, std::optional<Url> learnMoreURL,
                                    ConsentCompletion completion) const;

    /// The same screen in a view controller of the installed UI module; a new one on every call.
    std::shared_ptr<ViewController> informationViewController(std::optional<std::string> applicationName,
                                                              std::optional<std::string> description,
                                                              std::vector<DataReader> reader,
                                                              std::optional<Url> learnMoreURL,
                                                              ConsentCompletion completion) const;

    /// Starts a sampling session for each of `readers` that is not running yet.
    ///
    /// `completion` is called on the calling thread, before this returns: once for every reader that fails, with the
    /// failure and the reader's kind key, then exactly once with success and no reader. A kind that runs already is
    /// skipped silently and keeps its interval. The first sample comes one interval after the start, on the calling
    /// thread's run loop; the main loop ticks for a thread without one, such as the one of a consent callback. A
    /// distance session needs `view`, which it keeps until it is stopped and lets go of on the thread that ticks.
    ///
    /// A rate of zero or below samples once a second.
    void startTracking(const std::vector<DataReader>& readers, std::shared_ptr<View> view,
                       const StartCompletion& completion);

    /// Ends the session of this kind of reader, whatever rate it was started with; ignored when none runs. A tick that
    /// is storing its sample on another thread is waited for.
    void stopTracking(const DataReader& reader);

    /// Ends every session.
    void stopTracking();

    /// Posts every stored sample as one JSON document.
    ///
    /// The document is assembled before this returns, on the calling thread; `completion` is called at most once,
    /// before this returns when nothing could be sent (no document, or no thread to be had from the system), otherwise
    /// on the upload's delivery thread. With `deleteIfSuccessfull`, status 200 removes every record that is stored at
    /// that moment, also records taken during the upload; any other outcome removes nothing. Callbacks come one after
    /// the other; transfers go on meanwhile. From the library's exit handler on nothing is sent, and no callback comes.
    ///
    /// Fails with `cannotLoadTrackingData` when the samples cannot be read, and while there is no durable user
    /// identifier to send: the stored one cannot be read, or a new one cannot be stored.
    void shareTrackingData(bool deleteIfSuccessfull, ShareCompletion completion);

    /// Deletes every stored sample, for good: no byte of one stays in the store's files. While another process holds
    /// the store open, those bytes go as soon as it lets them, and on a full disk nothing is deleted until then.
    /// Samples that wait for a commit that works are not stored yet: they stay.
    void deleteTrackingData();

    /// How many samples are stored, those included that wait for a commit that works; 0 when counting fails.
    std::int64_t trackingDataCount() const;

private:
    Client(platform::Platform& platform, PersistenceController& store);

    platform::Platform& platform_;
    std::shared_ptr<TrackingSessions> sessions_;
    std::shared_ptr<DataSharing> sharing_;
};

}  // namespace tarvex
