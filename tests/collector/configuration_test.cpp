#include "collector/configuration/configuration.h"

#include "prelude.h"

namespace tarvex::collector {
namespace {

class Configurations : public ::testing::Test {
protected:
    Configuration read(const std::string& text) const {
        test::writeFile(file_, text);
        return readConfiguration(file_);
    }
    std::string refusal(const std::string& text) const {
        try {
            read(text);
            return "";
        } catch (const ConfigurationError& error) {
            return error.what();
        }
    }

    TemporaryDirectory directory_;
    std::filesystem::path file_ = directory_.path() / "collector.toml";
};

}  // namespace

TEST_F(Configurations, HaveADefaultForEveryKeyWhichTheFileOfDefaultsStates) {
    ::setenv("XDG_DATA_HOME", directory_.path().c_str(), 1);
    ::unsetenv("STATE_DIRECTORY");
    const Configuration none = readConfiguration({});
    const Configuration stated = read(std::string(defaultConfiguration()));
    EXPECT_EQ(none.directory, directory_.path() / "tarvex-collector");
    EXPECT_EQ(none.engine, "sqlite:" + (directory_.path() / "tarvex-collector/samples.sqlite").string());
    EXPECT_EQ(none.ingest.address, "127.0.0.1");
    EXPECT_EQ(none.limits.body, 512ULL << 20);
    EXPECT_EQ(stated.ingest, none.ingest);
    EXPECT_EQ(stated.page, none.page);
    EXPECT_EQ(stated.limits, none.limits);
    ::setenv("STATE_DIRECTORY", "/first:/second", 1);
    EXPECT_EQ(readConfiguration({}).directory, "/first");
    ::unsetenv("STATE_DIRECTORY");

    const Configuration own = read(
        "directory = '/d'\n[ingest]\nport = 0\nnames = ['a', 'b']\n[enrolment]\nrequired = true\nidentifiers = ['x']\n"
        "[expected]\nlight = 60\n[retention]\ndays = 30\n");
    EXPECT_EQ(own.engine, "sqlite:/d/samples.sqlite");
    EXPECT_EQ(own.ingest.port, 0);
    EXPECT_THAT(own.ingest.names, ElementsAre("a", "b"));
    EXPECT_TRUE(own.needsEnrolment && own.enrolled.contains("x"));
    EXPECT_EQ(own.expectedLight, 60);
    EXPECT_EQ(own.retentionDays, 30);
}

TEST_F(Configurations, NameTheFileAndTheKeyThatCannotBeUsed) {
    for (const auto& [text, why] : {std::pair("prot = 1", "\"prot\" is no key"),
                                    {"[ingest]\nprot = 1", "\"ingest.prot\" is no key"},
                                    {"[ingest]\nport = 'x'", "\"ingest.port\" is of the wrong type"},
                                    {"ingest = 7", "\"ingest\" is of the wrong type"},
                                    {"[ingest]\nport = 65536", "\"ingest.port\" is out of range"},
                                    {"[limits]\nbody = -1", "\"limits.body\" is out of range"},
                                    {"[expected]\nlight = -1", "\"expected.light\" is less than 0"},
                                    {"[enrolment]\nidentifiers = [1]", "holds something that is no text"},
                                    {"[ingest]\ncertificate = 'x'", "a certificate without a key"},
                                    {"[ingest]\nplain = true\naddress = '0.0.0.0'", "plain HTTP is for loopback"},
                                    {"[page]\naddress = '0.0.0.0'", "the page has no certificate"},
                                    {"[ingest]\nport", "line 2"}}) {
        EXPECT_THAT(refusal(text), HasSubstr(file_.string()));
        EXPECT_THAT(refusal(text), HasSubstr(why));
    }
    EXPECT_THROW(readConfiguration("/nonexistent"), ConfigurationError);
}

}  // namespace tarvex::collector
