#include "collector/ingest/document_reader.h"

#include "prelude.h"

namespace tarvex::collector {
namespace {

/// What one document gives.
struct Read {
    Sender sender;
    std::vector<AmbientLight> light;
    std::vector<Distance> distances;
    std::vector<OtherSample> others;
    std::vector<std::string> reasons;
    std::vector<std::string> excerpts;
    std::string refusal;
};

template <typename Sample>
std::vector<Sample> samplesOf(const SampleQueue<Sample>& queue) {
    std::vector<Sample> samples;
    queue.visit([&](auto batch) { samples.insert(samples.end(), batch.begin(), batch.end()); });
    return samples;
}

class DocumentReader : public ::testing::Test {
protected:
    Read read(std::string_view text) const {
        TemporaryFile body(directory_.path());
        body.append(std::as_bytes(std::span(text)));
        Read read;
        try {
            const Document document = readDocument(body, directory_.path());
            read.sender = document.sender;
            read.light = samplesOf(document.light);
            read.distances = samplesOf(document.distances);
            read.others = samplesOf(document.others);
            for (const Unreadable& record : document.unreadable) {
                read.reasons.push_back(record.reason);
                read.excerpts.push_back(record.excerpt);
            }
            EXPECT_EQ(read.reasons.size(), std::min<std::size_t>(document.unreadableCount, 1000));
        } catch (const NotADocument& refusal) {
            read.refusal = refusal.what();
        }
        return read;
    }

    /// A document of these records.
    Read readRecords(const std::string& records) const {
        return read(R"({"trackingData":[)" + records + R"(],"userId":"one"})");
    }

private:
    TemporaryDirectory directory_;
};

const std::string light =
    R"({"data":{"lux":1.5,"channel0":1,"channel1":-2,"channel2":3e2,"channel3":0},"type":"ambient_light","timestamp":7.25})";

}  // namespace

TEST_F(DocumentReader, TakesSamplesOfEveryKindInAnyOrderOfTheMembers) {
    const Read all = read(
        R"( {"device":"phone","userId":"","extra":{"a":[[1]]},"trackingData":[ )" + light +
        R"(,{"type":"distance","timestamp":8,"data":{"rightEyeDistanceFromCamera":31,"leftEyeDistanceFromCamera":30}},
            {"type":"ambient_light","timestamp":9,"data":{"lux":2,"colour":0.1}},
            {"type":"p\u00fcls","timestamp":1e1,"data":{"b":9007199254740993,"a":1e-400}},
            {"type":"empty","timestamp":11,"data":{}}],"applicationIdentifier":"org.example"} )");
    EXPECT_EQ(all.refusal, "");
    EXPECT_THAT(all.reasons, IsEmpty());
    EXPECT_EQ(all.sender.participant, "");
    EXPECT_EQ(all.sender.device, "phone");
    EXPECT_EQ(all.sender.application, "org.example");
    EXPECT_THAT(all.light, ElementsAre(AmbientLight{.time = 7.25, .lux = 1.5, .channels = {1, -2, 300, 0}}));
    EXPECT_THAT(all.distances, ElementsAre(Distance{.time = 8, .leftEye = 30, .rightEye = 31}));
    EXPECT_THAT(all.others, ElementsAre(OtherSample{9, "ambient_light", R"({"colour":0.1,"lux":2})"},
                                        OtherSample{10, "p\u00fcls", R"({"a":0,"b":9007199254740992})"},
                                        OtherSample{11, "empty", "{}"}));
    EXPECT_THAT(read(R"({"userId":"x","trackingData":[]})").light, IsEmpty()) << "a contact without samples";
}

TEST_F(DocumentReader, LeavesOutARecordThatCannotBeReadAndKeepsTheRest) {
    for (const auto& [record, reason] : std::initializer_list<std::pair<std::string, const char*>>{
             {"7", "it is no object"},
             {"null", "it is no object"},
             {"[[{}]]", "it is no object"},
             {R"({"type":"x","data":{}})", "it has no time stamp that is a number"},
             {R"({"type":"x","timestamp":"1","data":{}})", "a member is of the wrong type"},
             {R"({"type":"x","timestamp":1e400,"data":{}})", "its time stamp is no finite number"},
             {R"({"type":"x","timestamp":1e99999999999999999999,"data":{}})", "its time stamp is no finite number"},
             {R"({"type":"x","timestamp":)" + std::string(400, '9') + R"(,"data":{}})",
              "its time stamp is no finite number"},
             {R"({"type":"x","timestamp":NaN,"data":{}})", "its time stamp is no finite number"},
             {R"({"type":1,"timestamp":1,"data":{}})", "a member is of the wrong type"},
             {R"({"timestamp":1,"data":{}})", "it has no type"},
             {R"({"type":"x","timestamp":1})", "it has no data"},
             {R"({"type":"x","timestamp":1,"data":[1]})", "a member is of the wrong type"},
             {R"({"type":"x","timestamp":1,"data":{},"unit":"lx"})", "it has a member of an unknown name"},
             {R"({"type":"x","timestamp":1,"data":{"a":1e400}})", "a value is no finite number"},
             {R"({"type":"x","timestamp":1,"data":{"a":-Infinity}})", "a value is no finite number"},
             {R"({"type":"x","timestamp":1,"data":{"a":"NaN"}})", "a value is no finite number"},
             {R"({"type":"x","timestamp":1,"data":{"a":{"b":[1]}}})", "a value is no finite number"},
             {R"({"type":"x","timestamp":1,"data":{"a":1,"a":2}})", "a name stands in it twice"},
             {R"({"type":"x","timestamp":1,"data":{"lux":1,"lux":1}})", "a name stands in it twice"},
             {"{\"type\":\"x\",\"timestamp\":1,\"data\":{\"\xff\":1}}", "a name is no UTF-8"},
             {"{\"type\":\"\xc3\",\"timestamp\":1,\"data\":{}}", "its type is no UTF-8"}}) {
        SCOPED_TRACE(record);
        std::string records = light;
        records.append(",").append(record).append(",").append(light);
        const Read some = readRecords(records);
        EXPECT_EQ(some.refusal, "");
        EXPECT_THAT(some.reasons, ElementsAre(reason));
        EXPECT_THAT(some.light, SizeIs(1));
        EXPECT_THAT(some.others, IsEmpty());
    }
    std::string names;
    for (int name = 0; name < 200'000; ++name)
        names += (name > 0 ? ",\"n" : "\"n") + std::to_string(name) + "\":1";
    EXPECT_THAT(readRecords(R"({"type":"x","timestamp":1,"data":{)" + names + "}}").reasons,
                ElementsAre("it has more than 64 names"));
}

TEST_F(DocumentReader, ShowsTheBytesOfARecordThatCannotBeRead) {
    const std::string gap = std::string(1000, ' ') + "\n";
    const std::string object = R"({"type":"x\n"})";
    const std::string longText = '"' + std::string(400, 'x') + '"';
    std::string records = gap;
    for (const std::string& record :
         {std::string("7"), light, std::string("null"), object, R"("a\u0041b")" + gap, std::string("[ [1,\n2], {} ]"),
          std::string("-1e400"), longText, std::string("true")})
        records.append(records == gap ? "" : "," + gap).append(record);
    EXPECT_THAT(readRecords(records).excerpts, ElementsAre("7", "null", object, R"("a\u0041b")", "[ [1,?2], {} ]",
                                                           "-1e400", longText.substr(0, 300), "true"));
}

TEST_F(DocumentReader, RefusesWhatIsNoDocument) {
    const std::string deep(20'000'000, '[');
    const std::string longText(3'000'000, 'x');
    for (const auto& [text, why] : std::initializer_list<std::pair<std::string, const char*>>{
             {"", "no JSON"},
             {"not json", "no JSON"},
             {"7", "no JSON object"},
             {"[]", "no JSON object"},
             {"\"text\"", "no JSON object"},
             {R"({"userId":"x"})", "no array \"trackingData\""},
             {R"({"userId":"x","trackingData":{}})", "\"trackingData\" is no array"},
             {R"({"trackingData":[]})", "no \"userId\""},
             {R"({"userId":7,"trackingData":[]})", "\"userId\" is no text"},
             {"{\"userId\":\"\xff\",\"trackingData\":[]}", "no text"},
             {R"({"userId":"\u0000","trackingData":[]})", "no text"},
             {R"({"userId":")" + std::string(2000, 'x') + R"(","trackingData":[]})", "more than 1024 bytes"},
             {R"({"userId":"x","trackingData":[]} {})", "no JSON"},
             {std::string(R"({"userId":"x","trackingData":[]})") + '\0' + "x", "goes on after its end"},
             {R"({"userId":"x","trackingData":[)" + light, "no JSON"},
             {R"({"userId":"x","trackingData":[)" + deep, "nested more than 16 deep"},
             {deep, "no JSON object"},
             {R"({"x":)" + deep, "nested more than 16 deep"},
             {R"({"userId":"x","more":")" + longText + R"(","trackingData":[]})", "more than a megabyte"}}) {
        SCOPED_TRACE(text.substr(0, 80));
        EXPECT_THAT(read(text).refusal, HasSubstr(why));
    }
}

}  // namespace tarvex::collector
