// The example hosts without a window, each as a process of its own.

#include "host_process.h"

namespace tarvex {
namespace {

using namespace test;

class TerminalHosts : public ::testing::TestWithParam<ExampleHost> {};

TEST_P(TerminalHosts, AreRefusedAskSampleShareAndKeepNothing) {
    const HostSurroundings surroundings;
    const auto run = [&](const std::string& answer) {
        return ProcessRun("echo " + answer + " | timeout -k 5 60 env " + surroundings.environment() + " " +
                          GetParam().command);
    };
    const ProcessRun refused = run("n");
    EXPECT_EQ(refused.status, 0) << refused.output;
    EXPECT_THAT(refused.output, HasSubstr("The user has to consent to the tracking.")) << "it starts without consent";
    EXPECT_THAT(refused.output, Not(HasSubstr("samples")));
    EXPECT_EQ(surroundings.document(1), "");

    const ProcessRun consented = run("y");
    EXPECT_EQ(consented.status, 0) << consented.output;
    for (const char* line : {"1 samples", "2 samples", "3 samples", "0 samples"})
        EXPECT_THAT(consented.output, HasSubstr(line));
    const std::string document = surroundings.document(1);
    EXPECT_THAT(document, HasSubstr(GetParam().identifier));
    EXPECT_THAT(document, HasSubstr(R"("lux":321)"));
    EXPECT_TRUE(std::filesystem::is_directory(surroundings.home() / GetParam().identifier));

    const ProcessRun again = run("n");
    EXPECT_THAT(again.output, Not(HasSubstr("(y/n)"))) << "the consent holds";
    EXPECT_THAT(again.output, HasSubstr("3 samples"));
    EXPECT_EQ(surroundings.document(3), "");
    EXPECT_THAT(surroundings.document(2), HasSubstr(R"("lux":321)"));
}

const std::vector<ExampleHost> hosts{
    {.name = "C", .command = "'" TARVEX_C_HOST "'", .identifier = "org.tarvex.CHost"},
#ifdef TARVEX_VALA_HOST
    {.name = "Vala", .command = "'" TARVEX_VALA_HOST "'", .identifier = "org.tarvex.ValaHost"},
#endif
};

INSTANTIATE_TEST_SUITE_P(Gobject, TerminalHosts, ::testing::ValuesIn(hosts),
                         [](const auto& host) { return host.param.name; });

}  // namespace
}  // namespace tarvex
