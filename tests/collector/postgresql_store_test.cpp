#include "collector/store/postgresql/postgresql_store.h"

#include "postgresql_cluster.h"
#include "store_behaviour.h"

namespace tarvex::collector {
namespace {

using behaviour::contentsOf;
using behaviour::everySecond;
using behaviour::noon;
using behaviour::Post;
using behaviour::selected;
using test::PostgresqlCluster;

class PostgresqlStore : public ::testing::Test {
protected:
    void SetUp() override {
        if (test::postgresqlPrograms().empty()) GTEST_SKIP() << "the server of PostgreSQL is not installed";
    }
};

/// Hosts that post one document after the other, each as a participant of its own, until the store fails, and what was
/// acknowledged to them.
class Hosts {
public:
    explicit Hosts(const std::string& url) {
        for (std::size_t host = 0; host < acknowledged_.size(); ++host)
            threads_.emplace_back([this, url, host] { post(url, host); });
    }

    /// Waits until that many documents were acknowledged in all.
    bool reach(int count) const {
        return eventually([&] { return acknowledged_[0] + acknowledged_[1] >= count; });
    }
    void wait() { threads_.clear(); }

    /// Checks that what was acknowledged is there once, and a document that was not, whole or not at all; and that it
    /// stays so when all are posted again.
    void check(const std::string& url) const {
        const auto store = openPostgresqlStore(url);
        for (std::size_t host = 0; host < acknowledged_.size(); ++host) {
            const int acknowledged = acknowledged_[host];
            const auto found = static_cast<int>(contentsOf(*store, selected(nameOf(host))).size());
            EXPECT_THAT(found, AnyOf(acknowledged * samples, (acknowledged + 1) * samples));
            std::uint64_t fresh = 0;
            for (int number = 0; number <= acknowledged; ++number)
                fresh += document(host, number).to(*store).fresh;
            EXPECT_EQ(fresh, (acknowledged + 1) * samples - found);
            EXPECT_THAT(contentsOf(*store, selected(nameOf(host))).light, SizeIs((acknowledged + 1) * samples));
        }
    }

private:
    static constexpr int samples = 400;

    static std::string nameOf(std::size_t host) { return "P-" + std::to_string(host); }

    static Post document(std::size_t host, int number) {
        Post post(nameOf(host));
        for (int sample = 0; sample < samples; ++sample)
            post.light(noon + number * 1'000 + sample, number);
        return post;
    }

    void post(const std::string& url, std::size_t host) {
        try {
            const auto store = openPostgresqlStore(url);
            for (;; ++acknowledged_[host])
                document(host, acknowledged_[host]).to(*store);
        } catch (const StoreUnavailable&) {  // as it should be
        }
    }

    std::array<std::atomic<int>, 2> acknowledged_{};
    std::vector<std::jthread> threads_;
};

}  // namespace

TEST_F(PostgresqlStore, DoesWhatEveryStoreDoes) {
    PostgresqlCluster cluster("fsync = off\n");
    for (const behaviour::Behaviour& behaviour : behaviour::all) {
        SCOPED_TRACE(behaviour.name);
        behaviour.check([url = cluster.makeDatabase()] { return openPostgresqlStore(url); });
    }
}

TEST_F(PostgresqlStore, IsMadeBySeveralAtOnceAndLeftAloneWhenItIsNewer) {
    PostgresqlCluster cluster;
    const std::string url = cluster.makeDatabase();
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < 4; ++thread)
            threads.emplace_back([&, thread] {
                const auto store = openPostgresqlStore(url);
                for (int number = 0; number < 5; ++number)  // and makes months at the same time
                    Post("P-" + std::to_string(thread)).light(noon + number * 31.0 * 86'400).to(*store);
            });
    }
    EXPECT_EQ(contentsOf(*openPostgresqlStore(url)).size(), 20);
    EXPECT_EQ(PostgresqlCluster::run(url, "SELECT count(*) FROM pg_inherits WHERE inhparent = 'distance'::regclass"),
              "7");
    PostgresqlCluster::run(url, "UPDATE settings SET version = 2");
    EXPECT_THROW(openPostgresqlStore(url), StoreUnavailable);
    PostgresqlCluster::run(cluster.url(), "CREATE DATABASE latin ENCODING 'LATIN1' TEMPLATE template0");
    EXPECT_THROW(openPostgresqlStore(cluster.url("latin")), StoreUnavailable);
}

TEST_F(PostgresqlStore, TakesANewMonthInAndDropsAnOldOneBesideALongVisit) {
    PostgresqlCluster cluster;
    const auto store = openPostgresqlStore(cluster.url());
    const auto other = openPostgresqlStore(cluster.url());
    Post().light(noon).light(noon + 1).light(noon - 100.0 * 86'400).distance(noon - 100.0 * 86'400).to(*store);
    int seen = 0;
    store->visitLight({}, [&](const std::string&, const AmbientLight&) {
        if (++seen > 1) return;
        EXPECT_EQ(Post().light(noon + 40.0 * 86'400).to(*other).fresh, 1);
        EXPECT_EQ(Post().light(noon + 80.0 * 86'400).to(*store).fresh, 1) << "through the store that is visited";
        EXPECT_EQ(other->expire(noon - 86'400), 2);
    });
    EXPECT_EQ(seen, 3) << "what was there when the visit began";
    EXPECT_EQ(contentsOf(*store).size(), 4);
    EXPECT_EQ(store->expire(noon + 35.0 * 86'400), 2);
    EXPECT_EQ(PostgresqlCluster::run(cluster.url(), "SELECT to_regclass('ambient_light_2026_09') IS NULL"), "t");
}

TEST_F(PostgresqlStore, IsUnavailableWhileTheServerIsDownAndRecovers) {
    PostgresqlCluster cluster("fsync = off\n");
    const auto store = openPostgresqlStore(cluster.url());
    const Post post = everySecond(0, 10);
    EXPECT_EQ(post.to(*store).fresh, 20);
    PostgresqlCluster::run(cluster.url(),
                           "SELECT pg_terminate_backend(pid, 5000) FROM pg_stat_activity "
                           "WHERE application_name = 'tarvex-collector'");
    EXPECT_TRUE(store->countRepeat(post.body).has_value()) << "a lost connection is made again";
    cluster.kill();
    EXPECT_THROW(everySecond(5, 15).to(*store), StoreUnavailable);
    EXPECT_THROW(store->countRepeat(post.body), StoreUnavailable);
    EXPECT_THROW(store->participants(), StoreUnavailable);
    EXPECT_THROW(contentsOf(*store), StoreUnavailable);
    EXPECT_THROW(openPostgresqlStore(cluster.url()), StoreUnavailable);
    cluster.start();
    EXPECT_EQ(everySecond(5, 15).to(*store).fresh, 10);
    EXPECT_EQ(contentsOf(*store).size(), 30);
}

TEST_F(PostgresqlStore, LosesNothingThatWasAcknowledgedInACrash) {
    PostgresqlCluster cluster("recovery_init_sync_method = syncfs\n");
    Hosts hosts(cluster.url());
    EXPECT_TRUE(hosts.reach(60));
    cluster.kill();
    hosts.wait();
    cluster.start();
    hosts.check(cluster.url());
}

TEST_F(PostgresqlStore, LosesNothingThatWasAcknowledgedWhenTheStandbyTakesOver) {
    PostgresqlCluster primary;
    PostgresqlCluster standby(primary);
    PostgresqlCluster::run(primary.url(), "ALTER SYSTEM SET synchronous_standby_names = '*'");
    PostgresqlCluster::run(primary.url(), "SELECT pg_reload_conf()");
    Hosts hosts(primary.url());
    EXPECT_TRUE(hosts.reach(60));
    primary.kill();
    hosts.wait();
    standby.promote();
    hosts.check(standby.url());
}

TEST_F(PostgresqlStore, AcknowledgesNothingThatMayBeOnOneMachineAlone) {
    PostgresqlCluster cluster;
    const auto store = openPostgresqlStore(cluster.url());
    const Post known = everySecond(0, 10);
    known.to(*store);
    const auto waitForStandby = [&](const std::string& names) {
        PostgresqlCluster::run(cluster.url(), "ALTER SYSTEM SET synchronous_standby_names = '" + names + "'");
        PostgresqlCluster::run(cluster.url(), "SELECT pg_reload_conf()");
        EXPECT_TRUE(eventually(
            [&] { return PostgresqlCluster::run(cluster.url(), "SHOW synchronous_standby_names") == names; }));
    };
    const auto cancelWait = [&] {
        EXPECT_TRUE(eventually([&] {
            return PostgresqlCluster::run(cluster.url(),
                                          "SELECT count(pg_cancel_backend(pid)) FROM pg_stat_activity "
                                          "WHERE wait_event = 'SyncRep'") == "1";
        }));
    };
    waitForStandby("nobody");
    const Post fresh = everySecond(10, 20);
    const Post overlap = everySecond(0, 10);
    const std::vector<std::function<void()>> operations{
        [&] { fresh.to(*store); }, [&] { overlap.to(*store); },     [&] { store->countRepeat(known.body); },
        [&] { known.to(*store); }, [&] { store->erase("nobody"); }, [&] { store->note({.time = 1, .what = ""}); },
    };
    for (const auto& operation : operations) {
        const std::jthread cancelling(cancelWait);
        EXPECT_THROW(operation(), StoreUnavailable);
    }
    waitForStandby("");
    EXPECT_THAT(behaviour::numbersOf(fresh.to(*store)), ElementsAre(20, 0, 1));
    EXPECT_EQ(contentsOf(*store).size(), 40);
}

}  // namespace tarvex::collector
