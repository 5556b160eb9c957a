// What the collector needs of PostgreSQL, beside what is the least that one could do.
// usage: tarvex_collector_postgresql_costs [ROUNDS]

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>

#include "collector/ingest/document_reader.h"
#include "collector/postgresql_cluster.h"
#include "collector/store/postgresql/binary_copy.h"
#include "collector/store/postgresql/postgresql_connection.h"
#include "collector/store/postgresql/postgresql_store.h"
#include "light_documents.h"
#include "measures.h"

namespace tarvex::benchmarks {
namespace {

using namespace collector;

constexpr double begin = 1'780'000'000;
constexpr int smallSamples = 1'000;
constexpr int smallPosts = 100;

std::string settings() {
    return "shared_buffers = 256MB\nmax_wal_size = 4GB\n";
}

/// A document of these seconds, and the file that it was read from.
struct Post {
    explicit Post(const std::vector<int>& order, double from = begin)
        : document([&] {
              write(file, order, from);
              return readDocument(file, directory.path());
          }()) {}

    test::TemporaryDirectory directory;
    TemporaryFile file{directory.path()};
    Document document;
};

double clockOf(const std::function<void()>& work) {
    return costOf(work).clock;
}

/// A store, and how long it takes for a document that has so many samples which it lacks.
class Target {
public:
    explicit Target(const std::string& url) : store_(openPostgresqlStore(url)) {}

    double import(const Document& document, std::uint64_t fresh) {
        const Body body{.digest = nextDigest(), .bytes = 1'000, .received = 1'790'000'000};
        return clockOf([&] {
            if (store_->import(body, document, false, -1e300).fresh != fresh)
                throw std::runtime_error("the import fails");
        });
    }

    /// Small documents, one after the other.
    double importSmall(const std::vector<std::unique_ptr<Post>>& posts) {
        double sum = 0;
        for (const auto& post : posts)
            sum += import(post->document, smallSamples);
        return sum;
    }

private:
    Digest nextDigest() {
        ++number_;
        return {static_cast<std::uint8_t>(number_), static_cast<std::uint8_t>(number_ >> 8U)};
    }

    std::unique_ptr<Store> store_;
    unsigned number_ = 0;
};

/// The least that stores the samples: rows without a key.
double copyBare(const std::string& url, const Document& document) {
    PostgresqlConnection connection(url);
    connection.run(
        "CREATE TABLE bare (participant bigint, time float8, lux float8, channel0 float8, channel1 float8, "
        "channel2 float8, channel3 float8)");
    return clockOf([&] {
        BinaryCopy rows;
        document.light.visit([&](std::span<const AmbientLight> batch) {
            for (const AmbientLight& sample : batch) {
                rows.beginRow(7);
                rows.add(std::int64_t{1});
                for (const double value : {sample.time, sample.lux})
                    rows.add(value);
                for (const double channel : sample.channels)
                    rows.add(channel);
            }
        });
        rows.end();
        constexpr std::size_t pieceBytes = 64UL * 1024;
        std::string_view rest = rows.bytes();
        connection.copy("COPY bare FROM STDIN (FORMAT binary)", [&] {
            const std::string_view piece = rest.substr(0, pieceBytes);
            rest.remove_prefix(piece.size());
            return piece;
        });
    });
}

/// One round; each figure is a ratio inside it.
struct Round {
    double first = 0;
    double overlap = 0;
    double repeat = 0;
    double shuffled = 0;
    double large = 0;
    double small = 0;
};

/// A server with nobody behind it, and one whose commits wait for a standby.
struct Servers {
    test::PostgresqlCluster alone{settings()};
    test::PostgresqlCluster primary{settings()};
    test::PostgresqlCluster standby{primary};

    Servers() {
        test::PostgresqlCluster::run(primary.url(), "ALTER SYSTEM SET synchronous_standby_names = '*'");
        test::PostgresqlCluster::run(primary.url(), "SELECT pg_reload_conf()");
        const bool isSynchronous = test::eventually([&] {
            return test::PostgresqlCluster::run(primary.url(), "SELECT sync_state FROM pg_stat_replication") == "sync";
        });
        if (!isSynchronous) throw std::runtime_error("the standby is not synchronous");
    }
};

void measureKeys(Servers& servers, Round& round) {
    const auto ordered = seconds(million);
    auto mixed = ordered;
    std::ranges::shuffle(mixed, std::mt19937(3));
    const Post first(ordered);
    auto later = ordered;
    for (int& second : later)
        second += million / 2;
    const Post half(later);
    const Post shuffled(mixed);
    const std::string url = servers.alone.makeDatabase();
    const double bare = copyBare(url, first.document);
    Target target(url);
    round.first = target.import(first.document, million) / bare;
    round.repeat = target.import(first.document, 0) / bare;
    round.shuffled = target.import(shuffled.document, 0) / bare;
    round.overlap = target.import(half.document, million / 2) / bare;
}

void measureStandby(Servers& servers, Round& round) {
    Target alone(servers.alone.makeDatabase());
    Target safe(servers.primary.makeDatabase());
    // In turns, with the connections and partitions made before.
    const Post before(seconds(smallSamples), begin - 1e6);
    alone.import(before.document, smallSamples);
    safe.import(before.document, smallSamples);
    const Post large(seconds(million));
    const double without = alone.import(large.document, million);
    round.large = safe.import(large.document, million) / without;
    std::vector<std::unique_ptr<Post>> posts;
    posts.reserve(smallPosts);
    for (int number = 0; number < smallPosts; ++number)
        posts.push_back(std::make_unique<Post>(seconds(smallSamples), begin + million + number * smallSamples));
    const double smallWithout = alone.importSmall(posts);
    round.small = safe.importSmall(posts) / smallWithout;
}

void measure(int rounds) {
    std::vector<Round> all;
    for (int number = 0; number < rounds; ++number) {
        Servers servers;
        Round round;
        measureKeys(servers, round);
        measureStandby(servers, round);
        all.push_back(round);
    }
    std::printf("| What, for 1,000,000 samples, time | Measured | Target |\n|---|---|---|\n");
    printRow(all, "PostgreSQL, first post, against a binary COPY into a table without a key", &Round::first, "≤ 5 ×");
    printRow(all, "PostgreSQL, a post half of whose samples are known", &Round::overlap, "≤ 10 ×");
    printRow(all, "PostgreSQL, the same samples again in a body that is unknown", &Round::repeat, "≤ 4 ×");
    printRow(all, "PostgreSQL, the same samples shuffled", &Round::shuffled, "–");
    printRow(all, "a synchronous standby on the same machine, against none", &Round::large, "≤ 1.1 ×");
    printRow(all, "the same, for 100 posts of 1,000 samples", &Round::small, "≤ 2 ×");
}

}  // namespace
}  // namespace tarvex::benchmarks

int main(int count, char** arguments) {
    tarvex::benchmarks::measure(count > 1 ? std::atoi(arguments[1]) : 3);
    return 0;
}
