#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include <string>
#include <tuple>
#include <vector>

#include "LogCapture.h"
#include "talvex/basics/Log.h"
#include "talvex/user_settings/OnlineConfigJsonParser.h"

namespace {

using android::talvex::OnlineConfigJsonParser;
using Strings = std::vector<std::string>;
using Triples = std::vector<std::tuple<std::string, std::string, std::string>>;

Triples RecordsOf(const OnlineConfigJsonParser& parser) {
    Triples triples;
    for (const auto& s : *parser.GetSettings()) triples.emplace_back(s.category, s.key, s.value);
    return triples;
}

const std::string REQUIRED = R"("pid": 1234, "lifeCycle": 1, "package": "a.b.c")";
std::string Document(const std::string& params) {
    return "{" + REQUIRED + R"(, "param": [)" + params + "]}";
}

class OnlineConfigTest : public ::testing::Test {
  protected:
    void TearDown() override { Basics::Log::SetLogLevel(2); }
    TalvexTest::LogCapture logs;
};

TEST_F(OnlineConfigTest, AcceptedDocuments) {
    Basics::Log::SetLogLevel(3);
    const std::vector<std::pair<std::string, Triples>> rows = {
        {Document(R"({"param1": "stabilizer,gfps,25-30-40-60-max"},)"
                  R"({"param1": "stabilizer,sfps,0-0-35-50-0,stabilizer,explore_buffer_size,6"})"),
         {{"stabilizer", "gfps", "25-30-40-60-max"},
          {"stabilizer", "sfps", "0-0-35-50-0"},
          {"stabilizer", "explore_buffer_size", "6"}}},
        {"{" + REQUIRED + "}", {}},
        {Document(R"({"param1": "no comma"}, {"other": 1}, null, {"param1": " c ,,"})"),
         {{" c ", "", ""}}},
        {R"({"pid": 1234, "lifeCycle": 1, "package": "a.b.c", "x": "a\"//b/*"})", {}},
    };
    for (const auto& [text, records] : rows) {
        SCOPED_TRACE(text);
        logs.Clear();
        const OnlineConfigJsonParser parser = OnlineConfigJsonParser::Parse(text);
        EXPECT_EQ(parser.GetPID(), 1234);
        EXPECT_EQ(parser.GetLifeCycle(), 1);
        EXPECT_EQ(parser.GetTargetApp(), "a.b.c");
        EXPECT_EQ(RecordsOf(parser), records);
        EXPECT_THAT(logs.Messages(),
                    ::testing::ElementsAre(::testing::Field(
                        &TalvexTest::LogMessage::text,
                        "[OnlineConfigJsonParser] Parse success JSON_TEXT = " + text)));
    }
}

TEST_F(OnlineConfigTest, RejectedDocumentsAreClearedAndLogged) {
    // The document, and the piece a malformed command reports (nullptr: no command error).
    const std::vector<std::pair<std::string, const char*>> rows = {
        {R"({"pid": 5, "lifeCycle": 2})", nullptr},
        {R"({"lifeCycle": 2, "package": "x"})", nullptr},
        {R"({"pid": 5, "lifeCycle": null, "package": "x"})", nullptr},
        {R"({"pid": 5, "lifeCycle": 2, "package": "x")", nullptr},
        {"// c\n{" + REQUIRED + "}", nullptr},
        {R"({"pid": 5, // c)"
         "\n"
         R"("lifeCycle": 2, "package": "x"})",
         nullptr},
        {"{" + REQUIRED + "} /* c */", nullptr},
        {"5", nullptr},
        {"[{" + REQUIRED + "}]", nullptr},
        {"", nullptr},
        {Document(R"({"param1": "stabilizer,gfps"})"), "gfps"},
        {Document(R"({"param1": "stabilizer,gfps,30-60,"})"), ""},
        {Document(R"({"param1": "a,b,c"}, {"param1": "d,e,f,g"}, {"param1": "h,i,j"})"), "g"},
    };
    for (const auto& [text, commandError] : rows) {
        SCOPED_TRACE(text);
        logs.Clear();
        const OnlineConfigJsonParser parser = OnlineConfigJsonParser::Parse(text);
        EXPECT_EQ(parser.GetPID(), 0);
        EXPECT_EQ(parser.GetLifeCycle(), 3);
        EXPECT_EQ(parser.GetTargetApp(), "");
        EXPECT_TRUE(parser.GetSettings()->empty());
        Strings expected;
        if (commandError != nullptr) {
            expected.push_back(std::string("[OnlineConfigJsonParser] command size error ") +
                               commandError);
        }
        expected.push_back("[OnlineConfigJsonParser] Parse error.JSON_TEXT=" + text);
        Strings written;
        for (const auto& m : logs.Messages()) written.push_back(m.text);
        EXPECT_EQ(written, expected);
    }
}

TEST(OnlineConfigTypes, MembersOfTheWrongTypeThrowJsoncppsException) {
    for (const std::string& members :
         Strings{R"("pid": "5", "lifeCycle": 2, "package": "x")",
                 R"("pid": 5, "lifeCycle": [], "package": "x")",
                 R"("pid": 5, "lifeCycle": 2, "package": {})", REQUIRED + R"(, "param": {"a": 1})",
                 REQUIRED + R"(, "param": {})", REQUIRED + R"(, "param": "a,b,c")",
                 REQUIRED + R"(, "param": [7])", REQUIRED + R"(, "param": [{"param1": []}])"}) {
        EXPECT_THROW(OnlineConfigJsonParser::Parse("{" + members + "}"), Json::LogicError)
            << members;
    }
}

TEST(OnlineConfigCommand, PiecesComeInThreesAndTheArgumentIsConsumed) {
    struct Row {
        std::string command;
        int result;
        Triples records;
        std::string leftOver;
    };
    for (const Row& row : std::vector<Row>{
             {"no comma", 0, {}, "no comma"},
             {"c,k,v", 0, {{"c", "k", "v"}}, "v"},
             {"c,k,v,d,l,w", 0, {{"c", "k", "v"}, {"d", "l", "w"}}, "w"},
             {",,", 0, {{"", "", ""}}, ""},
             {"c,k", -1, {}, "k"},
             {"c,k,v,", -1, {}, ""},
             {"a,b,c,d,e", -1, {}, "e"},
         }) {
        OnlineConfigJsonParser parser;
        std::string command = row.command;
        EXPECT_EQ(parser.ParseCmd(command), row.result) << row.command;
        EXPECT_EQ(RecordsOf(parser), row.records) << row.command;
        EXPECT_EQ(command, row.leftOver) << row.command;
    }
}

TEST(OnlineConfigSettings, OneListSharedByCopiesAndCallers) {
    OnlineConfigJsonParser parser =
        OnlineConfigJsonParser::Parse(Document(R"({"param1": "a,b,c"})"));
    const auto list = parser.GetSettings();
    const OnlineConfigJsonParser copy = parser;
    std::string command = "d,e,f";
    parser.ParseCmd(command);
    EXPECT_EQ(RecordsOf(copy), (Triples{{"a", "b", "c"}, {"d", "e", "f"}}));
    parser.ClearData();
    EXPECT_EQ(parser.GetSettings(), list);
    EXPECT_TRUE(copy.GetSettings()->empty());
    EXPECT_NE(OnlineConfigJsonParser().GetSettings(), list);
}

}  // namespace
