#include "tarvex/platform/diagnostics.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>

#include "prelude.h"
#include "recorded_log.h"

namespace tarvex::platform {
namespace {

TEST(Diagnostics, AHostReceivesTheDomainsLinesWithTheirLevelsAndEachOnceWarningOnce) {
    const test::RecordedLog log;
    logWarning("100 %s");
    logDebug("for developers");
    WarningOnce warning;
    for (const char* text : {"the first reason", "the second reason"})
        warning.log(text);
    EXPECT_THAT(log.lines(), ElementsAre("100 %s", "the first reason"));
    EXPECT_THAT(log.lines(G_LOG_LEVEL_DEBUG), ElementsAre("for developers"));
}

TEST(DiagnosticsDeathTest, SurvivesEveryStandardErrorAndLeavesNoSignalBehind) {
    const auto writeTo = [](int descriptor) {
        dup2(descriptor, STDERR_FILENO);
        close(descriptor);
        std::signal(SIGPIPE, SIG_DFL);
        logWarning("a warning");
        writeErrorLine("a fixed line");
        sigset_t pending;
        sigpending(&pending);
        _exit(sigismember(&pending, SIGPIPE));
    };
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    close(ends[0]);
    EXPECT_EXIT(writeTo(ends[1]), ::testing::ExitedWithCode(0), "") << "a reader that went away";
    EXPECT_EXIT(writeTo(open("/dev/full", O_WRONLY)), ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT((close(STDERR_FILENO), writeTo(-1)), ::testing::ExitedWithCode(0), "");
}

TEST(DiagnosticsDeathTest, WritesToStandardErrorByDefault) {
    EXPECT_EXIT((logWarning("a warning"), _exit(0)), ::testing::ExitedWithCode(0), "Tarvex-WARNING.*: a warning");
}

}  // namespace
}  // namespace tarvex::platform
