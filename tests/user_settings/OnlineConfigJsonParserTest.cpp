#include <gtest/gtest.h>
#include <json/json.h>

#include <string>
#include <tuple>
#include <vector>

#include "harness/LogSink.h"
#include "harness/Scopes.h"
#include "talvex/basics/Log.h"
#include "talvex/user_settings/OnlineConfigJsonParser.h"

namespace {

using android::talvex::OnlineConfigJsonParser;
using Strings = std::vector<std::string>;
using Triples = std::vector<std::tuple<std::string, std::string, std::string>>;

Triples recordsOf(const OnlineConfigJsonParser& parser) {
    Triples triples;
    for (const auto& s : *parser.GetSettings()) triples.emplace_back(s.category, s.key, s.value);
    return triples;
}

const std::string REQUIRED = R"("pid": 1234, "lifeCycle": 1, "package": "a.b.c")";
std::string document(const std::string& params) {
    return "{" + REQUIRED + R"(, "param": [)" + params + "]}";
}

TEST(OnlineConfigJsonParser, AcceptedDocuments) {
    TalvexHarness::LogSink logs;
    TalvexHarness::LogSwitchesScope debug(3);
    const std::vector<std::pair<std::string, Triples>> rows = {
        {document(R"({"param1": "stabilizer,gfps,25-30-40-60-max"},)"
                  R"({"param1": "stabilizer,sfps,0-0-35-50-0,stabilizer,explore_buffer_size,6"})"),
         {{"stabilizer", "gfps", "25-30-40-60-max"},
          {"stabilizer", "sfps", "0-0-35-50-0"},
          {"stabilizer", "explore_buffer_size", "6"}}},
        {"{" + REQUIRED + "}", {}},
        {document(R"({"param1": "no comma"}, {"other": 1}, null, {"param1": " c ,,"})"),
         {{" c ", "", ""}}},
        {"{" + REQUIRED + R"(, "x": "a\"//b/*"})", {}},  // slashes inside a text are no comment
    };
    for (const auto& [text, records] : rows) {
        logs.Clear();
        const OnlineConfigJsonParser parser = OnlineConfigJsonParser::Parse(text);
        EXPECT_EQ(std::make_tuple(parser.GetPID(), parser.GetLifeCycle(), parser.GetTargetApp()),
                  std::make_tuple(1234, 1, std::string("a.b.c")));
        EXPECT_EQ(recordsOf(parser), records) << text;
        EXPECT_EQ(logs.Texts(TalvexHarness::kAnyPriority),
                  Strings{"[OnlineConfigJsonParser] Parse success JSON_TEXT = " + text});
    }
}

TEST(OnlineConfigJsonParser, RejectedDocumentsAreClearedAndLogged) {
    TalvexHarness::LogSink logs;
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
        {document(R"({"param1": "stabilizer,gfps"})"), "gfps"},
        {document(R"({"param1": "stabilizer,gfps,30-60,"})"), ""},
        {document(R"({"param1": "a,b,c"}, {"param1": "d,e,f,g"}, {"param1": "h,i,j"})"), "g"},
    };
    for (const auto& [text, commandError] : rows) {
        logs.Clear();
        const OnlineConfigJsonParser parser = OnlineConfigJsonParser::Parse(text);
        EXPECT_EQ(std::make_tuple(parser.GetPID(), parser.GetLifeCycle(), parser.GetTargetApp()),
                  std::make_tuple(0, 3, std::string()));
        EXPECT_TRUE(parser.GetSettings()->empty()) << text;
        Strings expected;
        if (commandError != nullptr) {
            expected.push_back(std::string("[OnlineConfigJsonParser] command size error ") +
                               commandError);
        }
        expected.push_back("[OnlineConfigJsonParser] Parse error.JSON_TEXT=" + text);
        EXPECT_EQ(logs.Texts(TalvexHarness::kAnyPriority), expected);
    }
}

TEST(OnlineConfigJsonParser, MembersOfTheWrongTypeThrowJsoncppsException) {
    for (const std::string& members :
         Strings{R"("pid": "5", "lifeCycle": 2, "package": "x")",
                 R"("pid": 5, "lifeCycle": [], "package": "x")",
                 R"("pid": 5, "lifeCycle": 2, "package": {})", REQUIRED + R"(, "param": {"a": 1})",
                 REQUIRED + R"(, "param": "a,b,c")", REQUIRED + R"(, "param": [7])",
                 REQUIRED + R"(, "param": [{"param1": []}])"}) {
        EXPECT_THROW(OnlineConfigJsonParser::Parse("{" + members + "}"), Json::LogicError)
            << members;
    }
}

TEST(OnlineConfigJsonParser, CommandPiecesComeInThreesAndTheArgumentIsConsumed) {
    const std::vector<std::tuple<std::string, int, Triples, std::string>> rows = {
        {"no comma", 0, {}, "no comma"},
        {"c,k,v,d,l,w", 0, {{"c", "k", "v"}, {"d", "l", "w"}}, "w"},
        {",,", 0, {{"", "", ""}}, ""},
        {"c,k", -1, {}, "k"},
        {"a,b,c,d,e", -1, {}, "e"},
    };
    for (const auto& [text, result, records, leftOver] : rows) {
        OnlineConfigJsonParser parser;
        std::string command = text;
        EXPECT_EQ(parser.ParseCmd(command), result) << text;
        EXPECT_EQ(recordsOf(parser), records) << text;
        EXPECT_EQ(command, leftOver) << text;
    }
}

TEST(OnlineConfigJsonParser, OneListSharedByCopiesAndCallers) {
    OnlineConfigJsonParser parser =
        OnlineConfigJsonParser::Parse(document(R"({"param1": "a,b,c"})"));
    const auto list = parser.GetSettings();
    const OnlineConfigJsonParser copy = parser;
    std::string command = "d,e,f";
    parser.ParseCmd(command);
    EXPECT_EQ(recordsOf(copy), (Triples{{"a", "b", "c"}, {"d", "e", "f"}}));
    parser.ClearData();
    EXPECT_EQ(parser.GetSettings(), list);
    EXPECT_TRUE(copy.GetSettings()->empty());
}

}  // namespace
