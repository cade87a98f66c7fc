// The structured log: what is recorded, how a new public call starts a new record, and
// the exact text and JSON renderings the CLI prints.
#include <nlohmann/json.hpp>

#include "SupportTestHelpers.h"
#include "support/XString.h"

namespace {

// A callee that returns early from inside its own context.
bool checkSomething(LogBase& log, bool bail) {
  LogContextExitor ctx(log, "checkSomething");
  if (bail) {
    log.LogError("Bailing out early.");
    return false;
  }
  return true;
}

}  // namespace

TEST(Log, TextAndJsonRenderings) {
  _btLogger log;
  {
    LogContextExitor op(log, "VerifySignature");
    log.LogDataLong("numReferences", -2);
    EXPECT_FALSE(checkSomething(log, true));
    log.LogDataBool("verified", false);
    log.LogBracketed("canonicalizedSignedInfo", std::string_view("<a>\n  x</a>"));
    log.LogDataHexDb("digest", DataBuffer("\xAB\x01", 2));
    log.LogInfo_n("Trying again.", 2);
    log.LogDataUint32("offset", 4000000000u);
    log.LogDataX("k", XString("value"));
    log.LogDataSb("sb", StringBuffer("s"));
    log.LogDataStr("name", "bad \xE9 byte");
    log.LogDataStr("null", nullptr);
    log.logResult(false);
  }
  // The early return closed its context: the next entry lands back in VerifySignature.
  EXPECT_EQ(log.renderText(),
            "VerifySignature:\n"
            "  numReferences: -2\n"
            "  checkSomething:\n"
            "    Bailing out early.\n"
            "  --checkSomething\n"
            "  verified: false\n"
            "  canonicalizedSignedInfo: [<a>\n  x</a>]\n"
            "  digest: ab01\n"
            "  Trying again.\n"
            "  offset: 4000000000\n"
            "  k: value\n"
            "  sb: s\n"
            "  name: bad \xE9 byte\n"
            "  null: \n"
            "  Failed.\n"
            "--VerifySignature\n");
  const nlohmann::json expected = nlohmann::json::parse(R"({"entries":[{"context":"VerifySignature","entries":[
      {"key":"numReferences","value":-2},
      {"context":"checkSomething","entries":[{"error":"Bailing out early."}]},
      {"key":"verified","value":false},
      {"key":"canonicalizedSignedInfo","value":"<a>\n  x</a>"},
      {"key":"digest","value":"ab01"},
      {"info":"Trying again.","tag":2},
      {"key":"offset","value":4000000000},
      {"key":"k","value":"value"},
      {"key":"sb","value":"s"},
      {"key":"name","value":"bad \ufffd byte"},
      {"key":"null","value":""},
      {"result":"failed"}]}]})");
  EXPECT_EQ(nlohmann::json::parse(log.renderJson()), expected);
  EXPECT_EQ(log.lastErrorLine(), "Bailing out early.");
  EXPECT_TRUE(log.containsText("Trying again.") && log.containsText("numReferences"));
  EXPECT_FALSE(log.containsText("Trying"));  // whole texts, not parts of them

  log.m_uncommonOptions.setString("foo, zatca");
  EXPECT_TRUE(log.hasUncommonOption("ZATCA", true));
  EXPECT_FALSE(log.hasUncommonOption("ZATCA", false));
}

TEST(Log, EachTopLevelContextStartsANewRecord) {
  _btLogger log;
  {
    LogContextExitor a(log, "LoadSignature");
    log.LogError("first call failed");
  }
  EXPECT_EQ(log.lastErrorLine(), "first call failed");
  {
    LogContextExitor b(log, "VerifySignature");
    { LogContextExitor c(log, "nested"); }  // nested contexts do not reset anything
    log.logResult(true);
  }
  EXPECT_EQ(log.renderText(), "VerifySignature:\n  nested:\n  --nested\n  Success.\n--VerifySignature\n");
  EXPECT_NE(log.renderJson().find("{\"result\":\"success\"}"), std::string::npos);
  EXPECT_EQ(log.lastErrorLine(), "");

  // The last error in document order, however deep.
  {
    LogContextExitor d(log, "op");
    log.LogError("outer first");
    {
      LogContextExitor e(log, "deep");
      log.LogError("deep second");
    }
    log.LogInfo("after");
  }
  EXPECT_EQ(log.lastErrorLine(), "deep second");

  log.leaveContext();  // unbalanced leave at the top is harmless
  log.clear();
  EXPECT_EQ(log.renderJson(), "{\"entries\":[]}");
}
