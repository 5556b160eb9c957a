#pragma once

#include <grp.h>
#include <libpq-fe.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "child_process.h"
#include "prelude.h"

namespace tarvex::test {

/// The programs of PostgreSQL on this machine, of the newest version; empty where it is not installed.
inline std::filesystem::path postgresqlPrograms() {
    std::map<int, std::filesystem::path> found;
    std::error_code none;
    for (const auto& version : std::filesystem::directory_iterator("/usr/lib/postgresql", none))
        if (std::filesystem::exists(version.path() / "bin/initdb") &&
            std::filesystem::exists(version.path() / "bin/postgres"))
            found[std::stoi(version.path().filename())] = version.path() / "bin";
    return found.empty() ? std::filesystem::path() : found.rbegin()->second;
}

/// A directory that the server's user owns: PostgreSQL does not run as root.
class ServerDirectory {
public:
    ServerDirectory() {
        if (user() != nullptr && chown(path().c_str(), user()->pw_uid, user()->pw_gid) != 0)
            throw std::runtime_error("chown");
    }

    const std::filesystem::path& path() const { return directory_.path(); }

    /// Whom the server runs as; null when it is the one that the test runs as.
    static const passwd* user() {
        static const passwd* const postgres = geteuid() == 0 ? getpwnam("postgres") : nullptr;
        return postgres;
    }

private:
    TemporaryDirectory directory_;
};

/// Starts a program of PostgreSQL, which ends with this process. Its words go to the file `log`.
inline pid_t startPostgresqlProgram(std::vector<std::string> command, const std::filesystem::path& log) {
    command.front() = postgresqlPrograms() / command.front();
    const test::Program program(std::move(command));
    const passwd* user = ServerDirectory::user();
    const pid_t process = fork();
    if (process != 0) return process;
    if (user != nullptr && (setgroups(0, nullptr) != 0 || setgid(user->pw_gid) != 0 || setuid(user->pw_uid) != 0))
        _exit(126);
    prctl(PR_SET_PDEATHSIG, SIGQUIT);
    if (std::freopen(log.c_str(), "a", stdout) == nullptr || dup2(STDOUT_FILENO, STDERR_FILENO) < 0) _exit(126);
    _exit(program.become());
}

/// A cluster of PostgreSQL for one test, reached by a socket in a directory of its own alone.
class PostgresqlCluster {
public:
    /// `settings`: lines of its configuration.
    explicit PostgresqlCluster(const std::string& settings = "") {
        run({"initdb", "-D", data(), "-U", "tester", "-A", "trust", "-E", "UTF8", "--locale=C", "--no-sync"});
        configure("listen_addresses = ''\nunix_socket_directories = '" + directory_.path().string() +
                  "'\nshared_buffers = 16MB\nmax_connections = 30\n" + settings);
        start();
    }

    /// A standby of another, which commits wait for as soon as the other is told so.
    explicit PostgresqlCluster(const PostgresqlCluster& primary) {
        run({"pg_basebackup", "-D", data(), "-R", "-X", "stream", "-c", "fast", "--no-sync", "-d", primary.url()});
        configure("unix_socket_directories = '" + directory_.path().string() + "'\n");
        start();
    }

    ~PostgresqlCluster() { kill(); }
    PostgresqlCluster& operator=(const PostgresqlCluster&) = delete;

    std::string url(const std::string& database = "postgres") const {
        return "postgresql:///" + database + "?user=tester&host=" + directory_.path().string();
    }

    /// The URL of a new, empty database.
    std::string makeDatabase() {
        const std::string name = "database" + std::to_string(++databases_);
        run(url(), "CREATE DATABASE " + name);
        return url(name);
    }

    /// Runs a statement. The first column of its first row.
    static std::string run(const std::string& url, const std::string& statement) {
        const std::unique_ptr<PGconn, decltype(&PQfinish)> connection(PQconnectdb(url.c_str()), PQfinish);
        const std::unique_ptr<PGresult, decltype(&PQclear)> result(PQexec(connection.get(), statement.c_str()),
                                                                   PQclear);
        if (PQresultStatus(result.get()) != PGRES_COMMAND_OK && PQresultStatus(result.get()) != PGRES_TUPLES_OK)
            throw std::runtime_error(PQerrorMessage(connection.get()));
        return PQntuples(result.get()) > 0 ? PQgetvalue(result.get(), 0, 0) : "";
    }

    /// Starts the server, also one that was killed: the first trials may find the memory of the last one still in use.
    void start() {
        const auto log = directory_.path() / "server.log";
        const bool isUp = eventually([&] {
            if (server_ == 0) server_ = startPostgresqlProgram({"postgres", "-D", data()}, log);
            std::this_thread::sleep_for(50ms);
            if (PQping(url().c_str()) == PQPING_OK) return true;
            if (waitpid(server_, nullptr, WNOHANG) == server_) server_ = 0;
            return false;
        });
        if (!isUp) throw std::runtime_error("the server does not start: " + contentsOf(log));
    }

    /// Ends the server and all its processes at once, as a crash does.
    void kill() {
        if (server_ == 0) return;
        std::istringstream children(
            contentsOf("/proc/" + std::to_string(server_) + "/task/" + std::to_string(server_) + "/children"));
        ::kill(server_, SIGKILL);
        for (pid_t child = 0; children >> child;)
            ::kill(child, SIGKILL);
        waitpid(server_, nullptr, 0);
        server_ = 0;
    }

    /// Makes the standby a primary.
    void promote() const { run(url(), "SELECT pg_promote()"); }

private:
    std::string data() const { return directory_.path() / "data"; }

    void configure(const std::string& settings) const {
        std::ofstream(directory_.path() / "data/postgresql.conf", std::ios::app) << settings;
    }

    void run(const std::vector<std::string>& command) const {
        const auto log = directory_.path() / "programs.log";
        int status = 0;
        waitpid(startPostgresqlProgram(command, log), &status, 0);
        if (status != 0) throw std::runtime_error(command.front() + ": " + contentsOf(log));
    }

    ServerDirectory directory_;
    pid_t server_ = 0;
    int databases_ = 0;
};

}  // namespace tarvex::test
