#pragma once

#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "collector/store/postgresql/postgresql_connection.h"
#include "collector/store/postgresql/postgresql_schema.h"

namespace tarvex::collector {

/// A connection that is made again when it was lost. Throws `StoreUnavailable`. Reentrant.
class PostgresqlSession {
public:
    explicit PostgresqlSession(std::string url) : url_(std::move(url)) { connection(); }

    /// Shared, as a new one takes its place while it is in the middle of a statement.
    std::shared_ptr<PostgresqlConnection> connection() {
        if (connection_ && connection_->isUsable()) return connection_;
        connection_.reset();
        auto made = std::make_shared<PostgresqlConnection>(url_);
        prepareSchema(*made);
        connection_ = std::move(made);
        return connection_;
    }

    /// Does it again when the server took it back, or was lost before a commit was asked for.
    template <typename Work>
    std::invoke_result_t<Work, PostgresqlConnection&> attempt(const Work& work) {
        for (int trial = 1;; ++trial) {
            const std::shared_ptr<PostgresqlConnection> usable = connection();
            try {
                return work(*usable);
            } catch (const PostgresqlError& error) {
                if (trial == mostTrials || !error.isPassing()) throw;
            }
        }
    }

    /// Does it in one transaction.
    template <typename Work>
    std::invoke_result_t<Work, PostgresqlConnection&> change(const Work& work, const char* begin = "begin") {
        return attempt([&](PostgresqlConnection& usable) {
            PostgresqlTransaction transaction(usable, begin);
            auto result = work(usable);
            transaction.commit();
            return result;
        });
    }

private:
    static constexpr int mostTrials = 3;

    std::string url_;
    std::shared_ptr<PostgresqlConnection> connection_;
};

}  // namespace tarvex::collector
