// A large document to a server on loopback.

#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <future>
#include <memory>
#include <string>

#include "benchmark_memory.h"
#include "benchmark_store.h"
#include "platform/curl/curl_url_session.h"
#include "platform/curl/scripted_tls_server.h"
#include "self_signed_certificate.h"

namespace tarvex::benchmarks {

namespace {

constexpr std::size_t documentSize = 150'000'000;
constexpr const char* host = "backend.example";

const test::SelfSignedCertificate& certificate() {
    static const test::SelfSignedCertificate& made = *new test::SelfSignedCertificate(host);
    return made;
}

// Reads a document and thanks for it.
void receive(test::TlsConnection& connection) {
    connection.readHead();
    constexpr std::size_t piece = std::size_t{1} << 20U;
    for (std::size_t left = documentSize; left > 0;) {
        const std::size_t read = connection.read(std::min(piece, left)).size();
        if (read == 0) return;
        left -= read;
    }
    connection.write("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    connection.close();
}

std::shared_ptr<const platform::ByteBuffer> document() {
    auto made = std::make_shared<platform::ByteBuffer>();
    made->reserve(documentSize);
    made->append(std::string(documentSize, 'x'));
    return made;
}

void uploadTarvex(benchmark::State& state) {
    test::ScriptedTlsServer server(certificate(), receive);
    platform::CurlUrlSession session(
        {.trustedCertificatesPem = certificate().pem(),
         .connectTo = {{.host = host, .port = 443, .targetHost = "127.0.0.1", .targetPort = server.port()}}});
    const auto body = document();
    const std::int64_t before = residentMemory();
    resetPeakMemory();
    for (auto _ : state) {
        std::promise<bool> done;
        session
            .dataTask({.url = Url::parse("https://backend.example/tracking").value(),
                       .method = "POST",
                       .headers = {{"Content-Type", "application/json"}},
                       .body = body},
                      [&done](auto response, auto error) { done.set_value(!error && response->statusCode == 200); })
            ->resume();
        if (!done.get_future().get()) return state.SkipWithError("the upload failed");
    }
    state.counters["megabytes_over_document"] = static_cast<double>(peakMemory() - before) / 1e6;
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(documentSize));
}

void uploadLibcurl(benchmark::State& state) {
    test::ScriptedTlsServer server(certificate(), receive);
    const std::string pem = certificate().pem();
    const std::string target = std::string(host) + ":443:127.0.0.1:" + std::to_string(server.port());
    const auto body = document();
    for (auto _ : state) {
        CURL* curl = curl_easy_init();
        curl_slist* connectTo = curl_slist_append(nullptr, target.c_str());
        curl_slist* headers = curl_slist_append(nullptr, "Expect:");
        curl_blob authority{.data = const_cast<char*>(pem.data()), .len = pem.size(), .flags = CURL_BLOB_COPY};
        curl_easy_setopt(curl, CURLOPT_URL, "https://backend.example/tracking");
        curl_easy_setopt(curl, CURLOPT_CONNECT_TO, connectTo);
        curl_easy_setopt(curl, CURLOPT_CAINFO_BLOB, &authority);
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
        curl_easy_setopt(curl, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body->data());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body->size()));
        if (curl_easy_perform(curl) != CURLE_OK) state.SkipWithError("the upload failed");
        curl_slist_free_all(headers);
        curl_slist_free_all(connectTo);
        curl_easy_cleanup(curl);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(documentSize));
}

BENCHMARK(uploadTarvex)->Name("upload/tarvex")->Iterations(3)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(uploadLibcurl)->Name("upload/libcurl")->Iterations(3)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace tarvex::benchmarks
