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
using Triple = std::tuple<std::string, std::string, std::string>;

std::vector<Triple> Triples(const OnlineConfigJsonParser& parser) {
    std::vector<Triple> triples;
    for (const auto& s : *parser.GetSettings()) triples.emplace_back(s.category, s.key, s.value);
    return triples;
}

std::string Document(const std::string& params) {
    return R"({"pid": 1234, "lifeCycle": 1, "package": "a.b.c", "param": [)" + params + "]}";
}

void ExpectCleared(const OnlineConfigJsonParser& parser) {
    EXPECT_EQ(parser.GetPID(), 0);
    EXPECT_EQ(parser.GetLifeCycle(), 3);
    EXPECT_EQ(parser.GetTargetApp(), "");
    ASSERT_NE(parser.GetSettings(), nullptr);
    EXPECT_TRUE(parser.GetSettings()->empty());
}

class OnlineConfigTest : public ::testing::Test {
  protected:
    void TearDown() override { Basics::Log::SetLogLevel(2); }
    TalvexTest::LogCapture logs;
};

TEST_F(OnlineConfigTest, ExampleDocumentYieldsThreeRecords) {
    Basics::Log::SetLogLevel(3);
    const std::string text =
        Document(R"({"param1": "stabilizer,gfps,25-30-40-60-max"},)"
                 R"({"param1": "stabilizer,sfps,0-0-35-50-0,stabilizer,explore_buffer_size,6"})");
    const OnlineConfigJsonParser parser = OnlineConfigJsonParser::Parse(text);
    EXPECT_EQ(parser.GetPID(), 1234);
    EXPECT_EQ(parser.GetLifeCycle(), 1);
    EXPECT_EQ(parser.GetTargetApp(), "a.b.c");
    EXPECT_EQ(Triples(parser), (std::vector<Triple>{
                                   {"stabilizer", "gfps", "25-30-40-60-max"},
                                   {"stabilizer", "sfps", "0-0-35-50-0"},
                                   {"stabilizer", "explore_buffer_size", "6"},
                               }));
    EXPECT_THAT(logs.Messages(),
                ::testing::ElementsAre(::testing::Field(
                    &TalvexTest::LogMessage::text,
                    "[OnlineConfigJsonParser] Parse success JSON_TEXT = " + text)));
}

TEST_F(OnlineConfigTest, AcceptedDocuments) {
    struct Row {
        const char* name;
        std::string text;
        std::vector<Triple> records;
    };
    const std::vector<Row> rows = {
        {"required members only", R"({"pid": 5, "lifeCycle": 2, "package": "x"})", {}},
        {"empty param", Document(""), {}},
        {"command without comma is ignored",
         Document(R"({"param1": "stabilizer"}, {"param1": "c,k,v"})"),
         {{"c", "k", "v"}}},
        {"element without param1 is ignored", Document(R"({"other": 1}, null)"), {}},
        {"slashes inside texts", R"({"pid": 5, "lifeCycle": 2, "package": "a\"//b/*"})", {}},
        {"pieces are verbatim", Document(R"({"param1": " c ,,"})"), {{" c ", "", ""}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        logs.Clear();
        const OnlineConfigJsonParser parser = OnlineConfigJsonParser::Parse(row.text);
        EXPECT_NE(parser.GetPID(), 0);
        EXPECT_NE(parser.GetTargetApp(), "");
        EXPECT_EQ(Triples(parser), row.records);
        EXPECT_EQ(logs.Count(ANDROID_LOG_INFO), 0u);
        EXPECT_EQ(logs.Count(ANDROID_LOG_ERROR), 0u);
    }
}

TEST_F(OnlineConfigTest, RejectedDocumentsAreClearedAndLogged) {
    struct Row {
        const char* name;
        std::string text;
        const char* commandError;  // the piece the command error shows, if any
    };
    const std::vector<Row> rows = {
        {"missing package", R"({"pid": 5, "lifeCycle": 2})", nullptr},
        {"missing pid", R"({"lifeCycle": 2, "package": "x"})", nullptr},
        {"null life cycle", R"({"pid": 5, "lifeCycle": null, "package": "x"})", nullptr},
        {"syntax error", R"({"pid": 5, "lifeCycle": 2, "package": "x")", nullptr},
        {"comment before the root", "// game\n{\"pid\": 5, \"lifeCycle\": 2, \"package\": \"x\"}",
         nullptr},
        {"comment between members", "{\"pid\": 5, // game\n \"lifeCycle\": 2, \"package\": \"x\"}",
         nullptr},
        {"comment after the root", R"({"pid": 5, "lifeCycle": 2, "package": "x"} /* game */)",
         nullptr},
        {"bare value at the root", "5", nullptr},
        {"array at the root", R"([{"pid": 5, "lifeCycle": 2, "package": "x"}])", nullptr},
        {"empty text", "", nullptr},
        {"two pieces", Document(R"({"param1": "stabilizer,gfps"})"), "gfps"},
        {"four pieces, last empty", Document(R"({"param1": "stabilizer,gfps,30-60,"})"), ""},
        {"a good command before a bad one",
         Document(R"({"param1": "a,b,c"}, {"param1": "d,e,f,g"}, {"param1": "h,i,j"})"), "g"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        logs.Clear();
        const OnlineConfigJsonParser parser = OnlineConfigJsonParser::Parse(row.text);
        ExpectCleared(parser);
        EXPECT_THAT(logs.Find(ANDROID_LOG_INFO),
                    ::testing::ElementsAre(::testing::Field(
                        &TalvexTest::LogMessage::text,
                        "[OnlineConfigJsonParser] Parse error.JSON_TEXT=" + row.text)));
        if (row.commandError != nullptr) {
            EXPECT_THAT(logs.Find(ANDROID_LOG_ERROR),
                        ::testing::ElementsAre(::testing::Field(
                            &TalvexTest::LogMessage::text,
                            std::string("[OnlineConfigJsonParser] command size error ") +
                                row.commandError)));
        } else {
            EXPECT_EQ(logs.Count(ANDROID_LOG_ERROR), 0u);
        }
    }
}

TEST_F(OnlineConfigTest, MembersOfTheWrongTypeThrowJsoncppsException) {
    for (const std::string& text : {
             std::string(R"({"pid": "5", "lifeCycle": 2, "package": "x"})"),
             std::string(R"({"pid": 5, "lifeCycle": [], "package": "x"})"),
             std::string(R"({"pid": 5, "lifeCycle": 2, "package": {}})"),
             std::string(R"({"pid": 5, "lifeCycle": 2, "package": "x", "param": {"a": 1}})"),
             std::string(R"({"pid": 5, "lifeCycle": 2, "package": "x", "param": {}})"),
             std::string(R"({"pid": 5, "lifeCycle": 2, "package": "x", "param": "a,b,c"})"),
             std::string(R"({"pid": 5, "lifeCycle": 2, "package": "x", "param": [7]})"),
             std::string(
                 R"({"pid": 5, "lifeCycle": 2, "package": "x", "param": [{"param1": []}]})"),
         }) {
        EXPECT_THROW(OnlineConfigJsonParser::Parse(text), Json::LogicError) << text;
    }
}

TEST(OnlineConfigCommand, PiecesComeInThreesAndTheArgumentIsConsumed) {
    struct Row {
        std::string command;
        int result;
        std::vector<Triple> records;
        std::string leftOver;
    };
    const std::vector<Row> rows = {
        {"no comma", 0, {}, "no comma"},
        {"", 0, {}, ""},
        {"c,k,v", 0, {{"c", "k", "v"}}, "v"},
        {"c,k,v,d,l,w", 0, {{"c", "k", "v"}, {"d", "l", "w"}}, "w"},
        {",,", 0, {{"", "", ""}}, ""},
        {"c,k", -1, {}, "k"},
        {"c,k,v,", -1, {}, ""},
        {"a,b,c,d,e", -1, {}, "e"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.command);
        OnlineConfigJsonParser parser;
        std::string command = row.command;
        EXPECT_EQ(parser.ParseCmd(command), row.result);
        EXPECT_EQ(Triples(parser), row.records);
        EXPECT_EQ(command, row.leftOver);
    }
}

TEST(OnlineConfigSettings, OneListSharedByCopiesAndCallers) {
    OnlineConfigJsonParser parser =
        OnlineConfigJsonParser::Parse(Document(R"({"param1": "a,b,c"})"));
    const auto list = parser.GetSettings();
    const OnlineConfigJsonParser copy = parser;
    EXPECT_EQ(copy.GetSettings(), list);

    std::string command = "d,e,f";
    parser.ParseCmd(command);
    EXPECT_EQ(Triples(copy), (std::vector<Triple>{{"a", "b", "c"}, {"d", "e", "f"}}));

    parser.ClearData();
    EXPECT_EQ(parser.GetSettings(), list);
    EXPECT_TRUE(list->empty());
    ExpectCleared(OnlineConfigJsonParser());
    EXPECT_NE(OnlineConfigJsonParser().GetSettings(), list);
}

}  // namespace
