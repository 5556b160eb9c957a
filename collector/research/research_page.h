#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "collector/http/server.h"
#include "collector/research/access.h"
#include "collector/research/json_answers.h"
#include "collector/research/problems.h"
#include "collector/store/store.h"

namespace tarvex::collector {

/// The page in which a researcher sees who sends what, and what is wrong, and what the page asks for. Who looks at a
/// participant, exports, enrols or deletes is noted in the store's audit. It names participants by a mark that only
/// this token gives, so that nothing in it gives away one that was deleted. Thread-safe.
class ResearchPage {
public:
    struct Options {
        std::function<std::unique_ptr<Store>()> open;  ///< a store of its own for each request under way
        Access::Options access;
        ExpectedIntervals expected = {};
        ProblemLimits limits = {};
        std::function<double()> now;  ///< seconds since 1970-01-01 00:00:00 UTC
        /// Answers a GET below /export/, absent when it knows no such file; nobody does where not set.
        std::function<std::optional<Response>(const RequestHead&)> exports = nullptr;
    };

    /// Throws `std::invalid_argument` without a token.
    explicit ResearchPage(Options options);
    ~ResearchPage();
    ResearchPage(const ResearchPage&) = delete;
    ResearchPage& operator=(const ResearchPage&) = delete;

    /// May wait for the store. Answers 503 when it is not available.
    Response answer(const RequestHead& head, const std::string& body);

private:
    class BorrowedStore;
    struct Route;
    static const std::vector<Route>& routes();

    Response route(const RequestHead& head, const std::string& body);
    Response showMetrics(const RequestHead& head, const std::string& body);
    Response showStudy(const RequestHead& head, const std::string& body);
    Response showDays(const RequestHead& head, const std::string& body);
    Response showSeries(const RequestHead& head, const std::string& body);
    Response enrol(const RequestHead& head, const std::string& body);
    Response erase(const RequestHead& head, const std::string& body);
    Response exportFile(const RequestHead& head);

    std::string markOf(const std::string& participant) const;
    void note(Store& store, const std::string& what) const;
    void noteLook(Store& store, const std::string& participant);

    const Options options_;
    const Access access_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<Store>> idleStores_;
    std::map<std::string, double> looks_;  ///< by participant: when the last was noted
};

}  // namespace tarvex::collector
