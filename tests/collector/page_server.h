#pragma once

#include <httplib.h>

#include "collector/research/research_page.h"
#include "prelude.h"
#include "simulated_study.h"

namespace tarvex::collector::test {

/// The research page of a simulated study on a free port of loopback.
class PageServer {
public:
    static constexpr auto token = "token-of-the-test";

    PageServer() {
        port_ = static_cast<std::uint16_t>(server_.bind_to_any_port("127.0.0.1"));
        const auto answer = [this](const httplib::Request& request, httplib::Response& response) {
            RequestHead head{
                request.method, request.path, {request.params.begin(), request.params.end()}, {}, "127.0.0.1"};
            for (const auto& [name, value] : request.headers) {
                std::string lower = name;
                std::ranges::transform(lower, lower.begin(),
                                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
                head.fields.emplace_back(lower, value);
            }
            const Response answered = page_.answer(head, request.body);
            response.status = answered.status;
            for (const auto& [name, value] : answered.fields)
                response.set_header(name, value);
            response.set_content(answered.body, answered.contentType);
        };
        server_.Get(".*", answer);
        server_.Post(".*", answer);
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        if (!eventually([this] { return server_.is_running(); })) throw std::runtime_error("the server does not start");
    }
    ~PageServer() {
        server_.stop();
        thread_.join();
    }
    PageServer(const PageServer&) = delete;
    PageServer& operator=(const PageServer&) = delete;

    std::string address() const { return "http://127.0.0.1:" + std::to_string(port_); }
    std::string addressWithToken() const { return address() + "/?token=" + token; }

    SimulatedStudy study;
    ExpectedIntervals expected{.light = SimulatedStudy::interval, .distance = 0};

private:
    std::uint16_t port_ = 0;
    httplib::Server server_;
    std::thread thread_;
    ResearchPage page_{{.open = [this] { return study.open(); },
                        .access = {.token = token, .port = [this] { return port_; }},
                        .expected = expected,
                        .now = [] { return SimulatedStudy::now; }}};
};

}  // namespace tarvex::collector::test
