#pragma once

#include <gio/gio.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace tarvex::test {

/// A desktop portal on the session bus of the test, which treats each request as its script says.
class ScriptedPortal {
public:
    enum class Step : std::uint8_t {
        reply,               ///< with the handle that the caller expects
        replyOtherHandle,    ///< as portals of old did
        replyError,          ///< the request is not allowed
        respondSuccess,      ///< 0
        respondCancelled,    ///< 1, what the user's "no" is as well
        respondOtherwise,    ///< 2
        respondToElse,       ///< success of a request that nobody made
        die,                 ///< leaves the bus without another word
        waitForNextRequest,  ///< goes on when another request has come: that one's steps come first
    };

    /// `knowsMethods`: a portal without them has the name on the bus, and no interface that a test asks for.
    explicit ScriptedPortal(std::vector<Step> script, bool knowsMethods = true);
    ~ScriptedPortal();
    ScriptedPortal(const ScriptedPortal&) = delete;
    ScriptedPortal& operator=(const ScriptedPortal&) = delete;

    int requestCount() const { return requestCount_; }
    /// The last URL that was to be opened. Read after the answer has come.
    const std::string& openedUrl() const { return openedUrl_; }

private:
    struct Request {
        GDBusMethodInvocation* invocation;
        std::string caller;
        std::string handle;
        std::size_t step = 0;
    };

    void run(bool knowsMethods);
    void registerObject();
    void receive(const char* method, GVariant* parameters, GDBusMethodInvocation* invocation);
    void play(Request request);
    void respond(const Request& request, const std::string& handle, std::uint32_t response);

    std::vector<Step> script_;
    std::vector<Request> waiting_;
    std::atomic<int> requestCount_ = 0;
    std::atomic<bool> ready_ = false;
    std::atomic<bool> ended_ = false;
    std::string openedUrl_;
    GMainContext* context_;
    GDBusConnection* bus_ = nullptr;
    std::thread thread_;
};

}  // namespace tarvex::test
