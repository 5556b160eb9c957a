#include "study.h"

#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <mutex>
#include <system_error>
#include <thread>

#include "participant_process.h"

namespace simulated_study {

namespace {

class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string name = std::filesystem::temp_directory_path() / "simulated-study-XXXXXX";
        if (mkdtemp(name.data()) == nullptr)
            throw std::system_error(errno, std::generic_category(), "Cannot make a temporary directory");
        path_ = name;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

Report runParticipant(const Study& study, int participant, const std::filesystem::path& dataDirectory) {
    const Ended ended = runMyself({"--participant", std::to_string(participant), "--data", dataDirectory, "--collector",
                                   study.collectorDirectory, "--days", std::to_string(study.days), "--seed",
                                   std::to_string(study.seed), "--end", std::to_string(study.ends)});
    Report report = readReport(ended.output, std::cerr);
    if (WIFSIGNALED(ended.status))
        return std::unexpected("Its process was ended by signal " + std::to_string(WTERMSIG(ended.status)) + ".");
    return report;
}

}  // namespace

std::vector<Report> run(const Study& study, const std::function<void(const std::vector<Report>&)>& finished) {
    const TemporaryDirectory directory;
    std::mutex mutex;
    std::vector<Report> reports(static_cast<std::size_t>(study.participants), std::unexpected("It has not ended."));
    std::atomic<int> last = 0;
    const auto work = [&] {
        for (int participant = ++last; participant <= study.participants; participant = ++last) {
            Report report;
            try {
                report = runParticipant(study, participant, directory.path() / std::to_string(participant));
            } catch (const std::exception& error) {
                report = std::unexpected(error.what());
            }
            const std::scoped_lock lock(mutex);
            reports[static_cast<std::size_t>(participant - 1)] = std::move(report);
            finished(reports);
        }
    };
    {
        std::vector<std::jthread> workers(std::max(1U, std::thread::hardware_concurrency()));
        std::ranges::generate(workers, [&work] { return std::jthread(work); });
    }
    return reports;
}

}  // namespace simulated_study
