// The structured log: what is recorded, how a new public call starts a new record, and
// the exact text and JSON renderings the CLI prints.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/XString.h"

namespace {

// A callee that returns early from inside its own context.
bool checkSomething(LogBase& log, bool bail) {
  LogContextExitor ctx(log, "checkSomething");
  if (bail) {
    log.LogError("Bailing out early.");
    return false;
  }
  log.LogInfo("Checked.");
  return true;
}

}  // namespace

TEST(Log, TextRenderingOfNestedContexts) {
  _btLogger log;
  {
    LogContextExitor op(log, "VerifySignature");
    log.LogDataLong("numReferences", 2);
    EXPECT_FALSE(checkSomething(log, true));
    log.LogDataBool("verified", false);
    log.LogBracketed("canonicalizedSignedInfo", std::string_view("<a>\n  x</a>"));
    log.LogDataHexDb("digest", DataBuffer("\xAB\x01", 2));
    log.LogInfo_n("Trying again.", 2);
    log.logResult(false);
  }
  EXPECT_EQ(log.renderText(),
            "VerifySignature:\n"
            "  numReferences: 2\n"
            "  checkSomething:\n"
            "    Bailing out early.\n"
            "  --checkSomething\n"
            "  verified: false\n"
            "  canonicalizedSignedInfo: [<a>\n  x</a>]\n"
            "  digest: ab01\n"
            "  Trying again.\n"
            "  Failed.\n"
            "--VerifySignature\n");
  EXPECT_EQ(log.lastErrorLine(), "Bailing out early.");
  EXPECT_TRUE(log.containsText("Trying again."));
  EXPECT_TRUE(log.containsText("numReferences"));
  EXPECT_TRUE(log.containsText("checkSomething"));
  EXPECT_FALSE(log.containsText("Trying"));

  // The early return closed its context: the next entry lands back in VerifySignature.
  ASSERT_EQ(log.entries().size(), 1u);
  const LogEntry& op = log.entries()[0];
  ASSERT_EQ(op.children.size(), 7u);
  EXPECT_EQ(op.children[1].kind, LogEntry::Kind::Context);
  EXPECT_EQ(op.children[2].key, "verified");
  EXPECT_EQ(op.children[5].tag, 2);
}

TEST(Log, JsonShapeAndTypes) {
  _btLogger log;
  {
    LogContextExitor op(log, "LoadSignature");
    log.LogError("Parse error.");
    log.LogInfo_n("Tagged.", 3);
    log.LogInfo("Plain.");
    log.LogDataLong("count", -5);
    log.LogDataUint32("offset", 4000000000u);
    log.LogDataBool("flag", true);
    log.LogDataStr("name", "bad \xE9 byte");
    { LogContextExitor inner(log, "inner"); }
    log.logResult(true);
  }
  const nlohmann::json j = nlohmann::json::parse(log.renderJson());
  const nlohmann::json expected = nlohmann::json::parse(R"({"entries":[{"context":"LoadSignature","entries":[
      {"error":"Parse error."},
      {"info":"Tagged.","tag":3},
      {"info":"Plain."},
      {"key":"count","value":-5},
      {"key":"offset","value":4000000000},
      {"key":"flag","value":true},
      {"key":"name","value":"bad \ufffd byte"},
      {"context":"inner","entries":[]},
      {"result":"success"}]}]})");
  EXPECT_EQ(j, expected);
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
    log.LogInfo("ok");
  }
  EXPECT_EQ(log.renderText(), "VerifySignature:\n  nested:\n  --nested\n  ok\n--VerifySignature\n");
  EXPECT_EQ(log.lastErrorLine(), "");
  EXPECT_FALSE(log.containsText("first call failed"));

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
  EXPECT_TRUE(log.entries().empty());
  EXPECT_EQ(log.renderJson(), "{\"entries\":[]}");
}

TEST(Log, HelpersAndOptions) {
  _btLogger log;
  XString x("value");
  log.LogDataX("k", x);
  log.LogDataSb("sb", StringBuffer("s"));
  log.LogDataStr("null", nullptr);
  EXPECT_EQ(log.renderText(), "k: value\nsb: s\nnull: \n");

  log.m_uncommonOptions.setString("foo, zatca");
  EXPECT_TRUE(log.hasUncommonOption("ZATCA", true));
  EXPECT_FALSE(log.hasUncommonOption("ZATCA", false));

  LogNull null;
  EXPECT_TRUE(null.isNullLog());
  EXPECT_FALSE(log.isNullLog());
  EXPECT_TRUE(checkSomething(null, false));
}
